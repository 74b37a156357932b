// check, repair and compact, and what all commands that work on a container's file have in common.
#include <fstream>

#include "tests/tool/Tool.h"

namespace {

using namespace tool;

class IntegrityTest : public ToolTest {
  protected:
    void SetUp() override {
        Good({"create", store_});
        Good({"set", store_, "kept", "v", "sz", "data"});
        Good({"set", store_, "victim\\below", "v", "sz", "lost"});
    }
    // Makes the directory entry of `name` refer to a page that is not its own. The entry's page.
    size_t Spoil(const std::string& name) {
        std::string units, bytes = Read("x.fbr");
        for (const char c : name) units += {c, '\0'};
        const size_t at = bytes.find(units);
        bytes[at - 16] = 1;
        Write("x.fbr", bytes);
        return at / 512;
    }
};

TEST_F(IntegrityTest, ReportsDamageAndMendsIt) {
    const std::string before = Read("x.fbr");
    const std::string count = std::to_string(before.size() / 512);
    for (const char* command : {"check", "repair"}) {
        EXPECT_EQ(Good({command, store_}), store_ + ": " + count + " pages, nothing found\n");
        EXPECT_EQ(Read("x.fbr"), before);
    }
    const std::string entry =
        "page " + std::to_string(Spoil("victim")) + ": bad directory entry \"victim\"\n";
    for (const char* command : {"check", "check", "repair"}) {
        const ProcessResult result = Fbr({command, store_});
        EXPECT_EQ(result.status, 3);
        EXPECT_EQ(result.err, "");
        EXPECT_NE(result.out.find(entry), std::string::npos) << result.out;
        EXPECT_NE(result.out.find("1 bad directory entry"), std::string::npos) << result.out;
        const bool mended = command == std::string("repair");
        EXPECT_EQ(result.out.find("mended") != std::string::npos, mended) << result.out;
        EXPECT_NE(result.out.find(": lost page"), std::string::npos) << result.out;
    }
    Good({"check", store_});
    EXPECT_EQ(Good({"tree", store_}), "\\ (1 value)\n└── kept (1 value)\n");
    EXPECT_EQ(Good({"get", store_, "kept", "v"}), "data\n");
}

TEST_F(IntegrityTest, TellsWhatIsNoReferenceByItsName) {
    const std::string sound = Read("x.fbr");
    const std::string count = std::to_string(sound.size() / 512);
    const auto damaged = [&sound](size_t at, char byte) {
        std::string bytes = sound;
        bytes[at] = byte;
        return bytes;
    };
    const std::pair<std::string, std::string> cases[] = {
        {damaged(0, 77), "page 0: wrong page map\n"},
        {damaged(6, 0), "page 0: wrong page map\n"},
        {damaged(512 + 244, 3), "page 1: wrong superblock\n"},
        {sound + "tail", "page " + count + ": no whole page\n"},
    };
    for (const auto& [bytes, line] : cases) {
        Write("x.fbr", bytes);
        for (const char* command : {"check", "repair"}) {
            EXPECT_EQ(Read("x.fbr"), bytes) << line;
            const ProcessResult result = Fbr({command, store_});
            EXPECT_EQ(result.status, 3) << line;
            EXPECT_EQ(result.out.find(line + store_ + ": " + count + " pages, 1 finding"), 0u)
                << result.out;
        }
        // But for the counter that tells others of a change, and the list of what the last one
        // wrote.
        std::string mended = Read("x.fbr");
        mended.replace(512 + 156, 4, sound, 512 + 156, 4);
        mended.replace(512 + 256, 144, sound, 512 + 256, 144);
        EXPECT_TRUE(mended == sound) << line;
        Good({"check", store_});
    }
}

// A chained log that lists a page that there is not.
TEST_F(IntegrityTest, GivesALogUpOnlyWhenAsked) {
    const std::string sound = Read("x.fbr");
    std::string bytes = sound;
    bytes[512 + 12] = 1;
    bytes[512 + 244] = 2;
    bytes[512 + 248] = 2;  // the root's page, as the first of the log
    Write("x.fbr", bytes);
    const ProcessResult check = Fbr({"check", store_});
    EXPECT_EQ(check.status, 3);
    EXPECT_EQ(check.out.find("page 1: redo log that cannot be replayed: repair --discard-log"), 0u);
    EXPECT_NE(Bad(1, {"repair", store_}).find("repair --discard-log"), std::string::npos);
    EXPECT_EQ(Read("x.fbr"), bytes);
    EXPECT_EQ(Fbr({"repair", "--discard-log", store_}).status, 3);
    EXPECT_EQ(Read("x.fbr"), sound);
}

TEST_F(IntegrityTest, CompactsToThePagesInUse) {
    for (int i = 0; i < 20; ++i) {
        Good({"set", store_, "gone\\" + std::to_string(i), "v", "sz", std::string(800, 'x')});
    }
    Good({"set", store_, "last", "v", "sz", "end"});
    Good({"rm", "-r", store_, "gone"});
    const auto before = std::filesystem::file_size(dir_ / "x.fbr");
    const std::string told = Good({"compact", store_});
    const auto after = std::filesystem::file_size(dir_ / "x.fbr");
    EXPECT_LT(after, before / 2);
    for (const auto bytes : {before, after}) {
        EXPECT_NE(told.find(" " + std::to_string(bytes / 512) + " pages"), std::string::npos);
        EXPECT_NE(told.find(" " + std::to_string(bytes) + " bytes"), std::string::npos) << told;
    }
    EXPECT_EQ(Good({"get", store_, "last", "v"}), "end\n");
    Good({"check", store_});
}

TEST_F(IntegrityTest, LooksWithoutATrace) {
    Spoil("victim");
    const auto file = dir_ / "x.fbr";
    const auto past = std::filesystem::last_write_time(file) - std::chrono::hours(9);
    std::filesystem::last_write_time(file, past);
    const std::string before = Read("x.fbr");
    EXPECT_EQ(Good({"info", store_, "--json"}).substr(0, 22), "{\"v\":1,\"file\":{\"name\":");
    EXPECT_NE(Good({"info", store_}).find("references that lead nowhere"), std::string::npos);
    EXPECT_NE(Good({"map", store_}).find("MSHE"), std::string::npos);
    EXPECT_NE(Good({"dump", store_, "2"}).find("FileInfoRecord"), std::string::npos);
    EXPECT_EQ(Good({"map", store_, "--svg", File("m.svg")}), "");
    EXPECT_EQ(Read("m.svg").substr(0, 5), "<svg ");
    EXPECT_EQ(Read("x.fbr"), before);
    EXPECT_EQ(std::filesystem::last_write_time(file), past);
}

TEST_F(IntegrityTest, RefusesWhatIsNoContainer) {
    Write("text.fbr", std::string(4000, 'x'));
    Write("empty.fbr", "");
    for (const char* command : {"check", "repair", "compact", "info", "map", "dump"}) {
        const bool dump = command == std::string("dump");
        for (const char* name : {"text.fbr", "empty.fbr", "missing.fbr", "."}) {
            std::vector<std::string> words = {command, File(name)};
            if (dump) words.push_back("0");
            EXPECT_EQ(Bad(1, words).find("fbr: cannot read " + File(name) + ": "), 0u) << command;
            words.insert(words.begin(), {"--method", "offline"});
            EXPECT_EQ(Bad(2, words).find("fbr: expected a container"), 0u) << command;
        }
    }
    EXPECT_FALSE(Exists("missing.fbr"));
    EXPECT_EQ(Read("text.fbr"), std::string(4000, 'x'));
    EXPECT_EQ(Bad(1, {"dump", store_, "4000000000"}).find("fbr: cannot dump page 4000000000"), 0u);
}

TEST_F(IntegrityTest, TracesAnyCommand) {
    const auto traceOf = [this](std::vector<std::string> words, const std::string& folder) {
        words.insert(words.end(), {"--trace", File(folder)});
        Good(words);
        std::string text;
        for (const auto& entry : std::filesystem::directory_iterator(dir_ / folder / "logs")) {
            std::ifstream in(entry.path(), std::ios::binary);
            text.append(std::istreambuf_iterator<char>(in), {});
        }
        return text;
    };
    EXPECT_NE(traceOf({"ls", store_}, "a").find("[FS_CreateDirEx] [ENTER]"), std::string::npos);
    EXPECT_NE(traceOf({"check", store_}, "b").find("[FS_CheckFileEx] [EXIT]"), std::string::npos);
    EXPECT_EQ(traceOf({"ls", store_, "--trace-level", "1"}, "c"), "");
    Write("file", "");
    EXPECT_EQ(Bad(1, {"--trace", File("file"), "ls", store_}).find("fbr: cannot trace to "), 0u);
}

}  // namespace
