// SPDX-License-Identifier: MIT
// The trace: its lines, its levels and the life of its file.
#include <fstream>
#include <regex>
#include <sstream>

#include "FS_Library_DLL/FsSwitches.h"
#include "FS_Library_DLL/keystore/FsIntegrity.h"
#include "platform/Clock.h"
#include "tests/support/Store.h"

namespace keystore {
namespace {

using namespace support;

class Trace : public testing::Test {
  protected:
    Trace() { std::filesystem::create_directory(dir / "logs"); }
    void TearDown() override { g_switches = {}; }

    void Switch(bool on, uint32_t level, bool onCorruption = false) {
        FBR_Logging(on, Wide(dir.Path()).c_str(), level, onCorruption);
    }
    std::filesystem::path LogFile() const {
        return dir / "logs" / ("FBR_" + std::to_string(platform::ProcessId()) + ".log");
    }
    std::string Raw() const {
        const Bytes bytes = ReadBytes(LogFile());
        return std::string(bytes.begin(), bytes.end());
    }
    // The lines with what differs from run to run put aside: T and the tick, times, and addresses,
    // which are the hexadecimal numbers of five digits and more.
    std::vector<std::string> Lines() const {
        std::istringstream text(Raw());
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line);) {
            EXPECT_EQ(line.back(), '\r');
            line.pop_back();
            line = std::regex_replace(line, std::regex("T *[0-9]+ -?[0-9]+ "), "");
            line = std::regex_replace(line, std::regex("\\bD\\[[0-9.e+-]+\\]"), "D[*]");
            line = std::regex_replace(line, std::regex("\\[[0-9A-F]{5,16}\\]"), "[*]");
            lines.push_back(line);
        }
        return lines;
    }

    TempDir dir;
    const WString path = dir.File("store.fbr");
};

TEST_F(Trace, LinesOfARun) {
    Store store(path);
    Switch(true, 4);
    Store traced(path);
    const size_t start = Lines().size();
    WChar* name = nullptr;
    uint64_t size = 0;
    EXPECT_EQ(traced.Lock(2), FSSTATUS_SUCCESS);
    const FBR_KEY key = traced.Make("a/b", 0, FSCREATEOPTIONS_VOLATILE);
    EXPECT_EQ(traced.Set(key, "", {7, 0, 0, 0}, 4), FSSTATUS_SUCCESS);
    EXPECT_EQ(traced.Query(key, "none", nullptr, 0, &size), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(FBR_EnumIntFileEx(key, 0, &name, traced.handle), FSSTATUS_SUCCESS);
    EXPECT_EQ(Taken(name), WTEXT("(Default)"));
    EXPECT_EQ(traced.Rename(key, "c"), FSSTATUS_SUCCESS);
    EXPECT_EQ(traced.Close(key), FSSTATUS_SUCCESS);
    EXPECT_EQ(traced.DeleteTree("c"), FSSTATUS_SUCCESS);
    EXPECT_EQ(traced.Unlock(2), FSSTATUS_SUCCESS);
    EXPECT_EQ(traced.Set(1, "v", {7, 0, 0, 0}, 4), FSSTATUS_LOCK_FAILED);
    std::vector<std::string> lines = Lines();
    lines.erase(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(start));
    std::ifstream file(std::filesystem::path(ZRFS_SOURCE_DIR) / "tests/keystore/trace.txt");
    std::vector<std::string> expected;
    for (std::string line; std::getline(file, line);)
        if (!line.starts_with('#')) expected.push_back(line);
    EXPECT_EQ(lines, expected);
}

TEST_F(Trace, ANullDirectoryChangesNothing) {
    Switch(true, 3);
    FBR_Logging(false, nullptr, 1, true);
    EXPECT_TRUE(g_switches.trace);
    EXPECT_EQ(g_switches.traceLevel, 3u);
    EXPECT_FALSE(g_switches.traceOnCorruption);
    FBR_Logging(true, WString(1000, 'd').c_str(), 1, true);
    EXPECT_EQ(WString(g_switches.logDirectory), WString(259, 'd'));
    EXPECT_FALSE(g_switches.traceOnCorruption) << "one switch or the other";
}

// The file is opened with a store, and anew with the next one. Without its folder all is silent.
TEST_F(Trace, ClosingOneStoreSilencesTheOthersUntilTheNextIsOpened) {
    const std::string first = "L 4 [FS_InitialiseEx] [ENTER] - after logging enabled";
    Switch(true, 4);
    Store one(path);
    EXPECT_EQ(Lines().front(), first);
    EXPECT_EQ(Lines().back(), "L 4 [FS_InitialiseEx] [EXIT]");
    { Store two(dir.File("two.fbr")); }
    const size_t length = Raw().size();
    one.Lock();
    EXPECT_EQ(Raw().size(), length);
    {
        Store three(dir.File("three.fbr"));
        EXPECT_EQ(Lines().front(), first);
        const size_t before = Lines().size();
        one.Unlock();
        EXPECT_EQ(Lines().size(), before + 2);
    }
    std::filesystem::remove_all(dir / "logs");
    EXPECT_EQ(Store(path).status, FSSTATUS_SUCCESS);
    EXPECT_FALSE(std::filesystem::exists(dir / "logs"));
}

TEST_F(Trace, CorruptionTurnsItOnWhenToldTo) {
    Switch(false, 1, false);
    FS_ProgressUpdate(WTEXT("name"), 15, 12);
    EXPECT_FALSE(std::filesystem::exists(LogFile()));
    Switch(false, 1, true);
    FS_ProgressUpdate(nullptr, 15, 12);
    FS_ProgressUpdate(WTEXT("name"), 8, 12);
    EXPECT_FALSE(std::filesystem::exists(LogFile())) << "only corrupt entries with a name";
    FS_ProgressUpdate(WTEXT("n\u00E4me"), 15, 12);
    FS_ProgressUpdate(WTEXT("b"), 15, 13);
    const std::string text =
        "L 1 [FS_ProgressUpdate] Callback from "
        "FS_CheckFileEx. Corruption DirEntry : Page [";
    EXPECT_EQ(Lines(), (std::vector<std::string>{text + "12] Entry Name [n\xC3\xA4me]",
                                                 text + "13] Entry Name [b]"}));
    Store(path).Close();  // closes the file for the next test
}

}  // namespace
}  // namespace keystore
