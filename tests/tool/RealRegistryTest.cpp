// SPDX-License-Identifier: MIT
// The whole HKEY_LOCAL_MACHINE of a real installation, as regedit exports it, goes in and comes
// out. The file is named by the first argument that is not for GoogleTest.
#include <algorithm>
#include <array>
#include <sstream>

#include "tests/tool/Tool.h"
#include "tools/format/RegWriter.h"

namespace {

using namespace formats;
using namespace tool;

std::filesystem::path g_export;

class RealRegistry : public ToolTest {
  protected:
    void SetUp() override {
        const Bytes bytes = support::ReadBytes(g_export);
        original_.assign(bytes.begin(), bytes.end());
        ASSERT_GT(original_.size(), 1'000'000u) << g_export;
    }

    static std::vector<WString> ContentOf(const std::string& bytes) {
        return SortedLines(fbr::ReadReg(bytes));
    }

    std::string original_;
};

// Our writer, given what our reader read, writes what regedit wrote.
TEST_F(RealRegistry, IsWrittenByteForByteAsRegeditWroteIt) {
    const fbr::Document document = fbr::ReadReg(original_);
    std::ostringstream out;
    fbr::RegWriter writer(out, {});
    for (const Record& record : document.records) {
        if (record.kind == Record::Kind::kKey)
            writer.Key(document.keys[record.key]);
        else
            writer.Value(record.name, record.type, record.data);
    }
    writer.Finish();
    EXPECT_GT(document.keys.size(), 10'000u);
    EXPECT_TRUE(out.str() == original_);
}

// A user's key of the live registry; empty where there is none.
std::string LiveUser(const std::string& listed) {
    const size_t begin = listed.find("S-1-5-21-");
    if (begin == std::string::npos) return "";
    return "\\registry\\user\\" + listed.substr(begin, listed.find('\\', begin) - begin);
}

// JSON lines and back, and container, live registry where there is one, hive, container: each is
// copied from the one before.
TEST_F(RealRegistry, ComesBackUnchangedThroughEveryKindOfStore) {
    Good({"import", store_, Utf8(g_export), "--prefix", "HKEY_LOCAL_MACHINE"});
    const auto expected = ContentOf(original_);
    EXPECT_GT(expected.size(), 30'000u);
    EXPECT_TRUE(ContentOf(Good({"export", store_, "--prefix", "HKEY_LOCAL_MACHINE"})) == expected);
    Good({"export", store_, "--format", "jsonl", "-o", File("x.jsonl")});
    Good({"import", File("z.fbr"), File("x.jsonl")});
    const std::string user = LiveUser(Fbr({"--method", "native", "ls", "\\registry\\user"}).out);
    const std::string scratch = "Software\\ZrFsRoundTrip";
    std::vector<std::array<std::string, 2>> stores = {{"container", store_}};
    if (!user.empty()) stores.push_back({"native", user + "\\" + scratch});
    stores.push_back({"offline", File("x.dat")});
    stores.push_back({"container", File("y.fbr")});

    for (size_t i = 1; i < stores.size(); ++i) {
        const auto& [fromMethod, from] = stores[i - 1];
        const auto& [toMethod, to] = stores[i];
        Good({"--method", fromMethod, "copy", from, "--to-method", toMethod, "--to", to});
        EXPECT_EQ(Good({"--method", toMethod, "diff", to, "--to", store_}), "") << to;
    }
    for (const char* copy : {"y.fbr", "z.fbr"})
        EXPECT_TRUE(Good({"export", File(copy)}) == Good({"export", store_}));
    if (!user.empty()) Good({"--method", "native", "rm", "-r", user, scratch});
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (argc > 1) g_export = argv[1];
    return RUN_ALL_TESTS();
}
