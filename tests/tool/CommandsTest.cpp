#include "tests/tool/Tool.h"

namespace {

using namespace tool;

TEST_F(ToolTest, CreatesAStoreOnce) {
    EXPECT_EQ(Good({"create", store_}), "");
    EXPECT_EQ(std::filesystem::file_size(dir_ / "x.fbr") % 512, 0u);
    const std::string before = Read("x.fbr");
    EXPECT_EQ(Bad(1, {"create", store_}),
              "fbr: cannot create store " + store_ + ": FSSTATUS_ALREADY_EXISTS (8)\n");
    EXPECT_EQ(Read("x.fbr"), before);
    EXPECT_EQ(Good({"ls", store_}), "FBRVersion  REG_DWORD  4  2 (0x00000002)\n");
}

TEST_F(ToolTest, LeavesAMissingStoreMissing) {
    const std::string missing = "fbr: cannot open store " + store_ + ": FSSTATUS_NOT_FOUND (3)\n";
    for (const std::vector<std::string>& words : {std::vector<std::string>{"ls", store_},
                                                  {"tree", store_},
                                                  {"get", store_, "k"},
                                                  {"set", store_, "k", "n", "sz", "x"},
                                                  {"rm", store_, "k"},
                                                  {"mv", store_, "k", "l"},
                                                  {"export", store_}}) {
        EXPECT_EQ(Bad(1, words), missing);
    }
    EXPECT_FALSE(Exists("x.fbr"));
}

TEST_F(ToolTest, TakesARelativePath) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(dir_.Path());
    Good({"create", "y.fbr"});
    EXPECT_EQ(Bad(1, {"get", "y.fbr", "\\a\\b", "n"}),
              "fbr: cannot open key \\a\\b in y.fbr: FSSTATUS_NOT_FOUND (3)\n");
    std::filesystem::current_path(before);
    EXPECT_TRUE(Exists("y.fbr"));
}

TEST_F(ToolTest, SetsAndShowsEveryType) {
    Good({"create", store_});
    Good({"set", store_, "\\k", "sz", "sz", "h\u00e9llo \u20ac \U0001F600"});
    Good({"set", store_, "k", "expand", "expand_sz", "%PATH%"});
    Good({"set", store_, "k", "multi", "multi_sz", "one", "two words"});
    Good({"set", store_, "k", "binary", "binary", "0102", "ff"});
    Good({"set", store_, "k", "dword", "dword", "0x1F"});
    Good({"set", store_, "k", "qword", "qword", "18446744073709551615"});
    Good({"set", store_, "k", "none", "none"});
    Good({"set", store_, "k", "other", "0x12345678", "aabb"});
    Good({"set", store_, "k", "raw", "sz", "--hex", "61 00 62"});
    Good({"set", store_, "k", "", "sz", "unnamed"});
    Good({"set", store_, "k\\sub\\deep", "n", "sz", "x"});

    EXPECT_EQ(Good({"ls", store_, "k"}),
              "sub\\\n"
              "(Default)  REG_SZ           16  unnamed\n"
              "binary     REG_BINARY        3  01 02 ff\n"
              "dword      REG_DWORD         4  31 (0x0000001f)\n"
              "expand     REG_EXPAND_SZ    14  %PATH%\n"
              "multi      REG_MULTI_SZ     30  \"one\" \"two words\"\n"
              "none       REG_NONE          0  \n"
              "other      type 0x12345678   2  aa bb\n"
              "qword      REG_QWORD         8  18446744073709551615 (0xffffffffffffffff)\n"
              "raw        REG_SZ            3  61 00 62\n"
              "sz         REG_SZ           22  h\u00e9llo \u20ac \U0001F600\n");
    EXPECT_EQ(Good({"get", store_, "k", "sz"}), "h\u00e9llo \u20ac \U0001F600\n");
    EXPECT_EQ(Good({"get", store_, "k", "multi"}), "one\ntwo words\n");
    EXPECT_EQ(Good({"get", store_, "k", "dword"}), "31\n");
    EXPECT_EQ(Good({"get", store_, "k"}), "unnamed\n");
    EXPECT_EQ(Good({"get", store_, "k", "raw", "--raw"}), std::string("a\0b", 3));
    EXPECT_EQ(Good({"get", store_, "k", "none", "--raw"}), "");
    Good({"set", store_, "k", "lines", "binary", "0a0d0a1a"});
    EXPECT_EQ(Good({"get", "--raw", store_, "k", "lines"}), "\n\r\n\x1a") << "bytes as they are";
}

// Data over the size that one question brings.
TEST_F(ToolTest, ReadsDataOfEverySize) {
    Good({"create", store_});
    for (const size_t size : {1023u, 1024u, 1025u, 3000u}) {
        std::string hex, bytes;
        for (size_t i = 0; i < size; ++i) {
            hex += "0123456789abcdef"[i % 16];
            hex += '5';
            bytes += static_cast<char>(16 * (i % 16) + 5);
        }
        Good({"set", store_, "k", "v", "binary", hex});
        EXPECT_EQ(Good({"get", store_, "k", "v", "--raw"}), bytes) << size;
    }
}

// Words that the parser of a command line is tempted to understand.
TEST_F(ToolTest, TakesWordsAsTheyAre) {
    Good({"create", store_});
    Good({"set", store_, "ls", "export", "multi_sz", "[a,b]", "{}", "%%", "set", "/x", "a,b"});
    EXPECT_EQ(Good({"get", store_, "ls", "export"}), "[a,b]\n{}\n%%\nset\n/x\na,b\n");
    Good({"set", store_, "[k,l]", "[n]", "sz", "\x01[x]"});
    EXPECT_EQ(Good({"get", store_, "[k,l]", "[n]"}), "\x01[x]\n");
    Good({"set", store_, "/k", "a\\b \"c\"", "sz", "--", "-5"});
    EXPECT_EQ(Good({"get", store_, "/k", "a\\b \"c\""}), "-5\n");
    Good({"set", store_, "k", "empty", "sz", ""});
    EXPECT_EQ(Good({"get", store_, "k", "empty", "--raw"}), std::string(2, '\0'));
}

TEST_F(ToolTest, DrawsTheTree) {
    Good({"create", store_});
    Good({"set", store_, "a\\b\\c", "v", "sz", "x"});
    Good({"set", store_, "a\\b\\c", "w", "sz", "x"});
    Good({"set", store_, "a\\d\\e", "v", "sz", "x"});
    Good({"set", store_, "f", "v", "sz", "x"});
    EXPECT_EQ(Good({"tree", store_}),
              "\\ (1 value)\n"
              "├── a\n"
              "│   ├── b\n"
              "│   │   └── c (2 values)\n"
              "│   └── d\n"
              "│       └── e (1 value)\n"
              "└── f (1 value)\n");
    EXPECT_EQ(Good({"tree", store_, "\\a\\d"}), "\\a\\d\n└── e (1 value)\n");
    EXPECT_EQ(Good({"tree", store_, "a", "--depth", "1"}), "\\a\n├── b\n└── d\n");
}

TEST_F(ToolTest, RemovesValuesAndKeys) {
    Good({"create", store_});
    Good({"set", store_, "a\\b", "v", "sz", "x"});
    Good({"set", store_, "a", "v", "sz", "x"});
    EXPECT_EQ(Bad(1, {"rm", store_, "a"}),
              "fbr: cannot remove key \\a in " + store_ +
                  ": FSSTATUS_DIR_NOT_EMPTY (9); it has subkeys: use -r\n");
    EXPECT_EQ(Good({"get", store_, "a", "v"}), "x\n") << "a refused removal takes nothing";
    Good({"rm", store_, "a", "v"});
    EXPECT_EQ(Bad(1, {"rm", store_, "a", "v"}), "fbr: cannot remove value \"v\" of key \\a in " +
                                                    store_ + ": FSSTATUS_NOT_FOUND (3)\n");
    Good({"set", store_, "c", "v", "sz", "x"});
    Good({"rm", store_, "c"});
    Good({"rm", "-r", store_, "a"});
    EXPECT_EQ(Good({"tree", store_}), "\\ (1 value)\n");
    EXPECT_EQ(Bad(1, {"rm", store_, "-r", "a"}),
              "fbr: cannot remove key \\a in " + store_ + ": FSSTATUS_NOT_FOUND (3)\n");
}

TEST_F(ToolTest, RenamesKeys) {
    Good({"create", store_});
    Good({"set", store_, "a\\b\\c", "v", "sz", "x"});
    Good({"set", store_, "a\\d", "v", "sz", "y"});
    Good({"mv", store_, "a\\b", "new name"});
    EXPECT_EQ(Good({"get", store_, "a\\new name\\c", "v"}), "x\n");
    EXPECT_EQ(Bad(1, {"mv", store_, "a\\d", "New Name"}),
              "fbr: cannot rename key \\a\\d to New Name in " + store_ +
                  ": FSSTATUS_ALREADY_EXISTS (8)\n");
    EXPECT_EQ(Good({"get", store_, "a\\d", "v"}), "y\n");
    EXPECT_EQ(Bad(1, {"mv", store_, "nokey", "x"}).substr(0, 31),
              "fbr: cannot open key \\nokey in ");
}

TEST_F(ToolTest, RefusesWrongUsageWithTwo) {
    Good({"create", store_});
    const std::string before = Read("x.fbr");
    for (const std::vector<std::string>& words : {std::vector<std::string>{},
                                                  {"frobnicate"},
                                                  {"ls"},
                                                  {"ls", store_, "a", "b"},
                                                  {"ls", "--nope", store_},
                                                  {"--method", "bottle", "ls", store_},
                                                  {"get", store_},
                                                  {"set", store_, "k", "n", "string", "x"},
                                                  {"set", store_, "k", "n", "dword", "4294967296"},
                                                  {"set", store_, "k", "n", "dword", "x"},
                                                  {"set", store_, "k", "n", "sz", "two", "words"},
                                                  {"set", store_, "k", "n", "binary", "0"},
                                                  {"set", store_, "a\\\\b", "n", "sz", "x"},
                                                  {"rm", store_, "\\"},
                                                  {"rm", store_, "k", "n", "-r"},
                                                  {"mv", store_, "k", "a\\b"},
                                                  {"mv", store_, "k", ""},
                                                  {"mv", store_, "\\", "x"},
                                                  {"export", store_, "--format", "xml"},
                                                  {"import", store_}}) {
        EXPECT_EQ(Bad(2, words).substr(0, 5), "fbr: ") << testing::PrintToString(words);
    }
    EXPECT_EQ(Read("x.fbr"), before);
    EXPECT_NE(Good({"--help"}).find("import"), std::string::npos);
    EXPECT_NE(Good({"set", "--help"}).find("multi_sz"), std::string::npos);
}

TEST_F(ToolTest, TakesAMethodByNameOrNumberAnywhere) {
    Good({"--method", "container", "create", store_});
    Good({"ls", store_, "--method", "1"});
    EXPECT_EQ(Bad(1, {"ls", store_, "--method=4"}),
              "fbr: cannot open store " + store_ + ": FSSTATUS_INVALID_PARAMETER (2)\n");
    EXPECT_EQ(Bad(1, {"ls", store_, "--method", "3"})
                  .find("fbr: cannot open store " + store_ + ": FSSTATUS_NOT_IMPLEMENTED (13); "),
              0u);
    // Where a system has no live registry it has no mounted hives either, and says so.
    const std::string live = Fbr({"--method", "native", "ls", "\\registry\\user"}).err;
    if (live.empty()) return;
    EXPECT_NE(live.find("(13); the live registry is a part of Windows"), live.npos) << live;
    EXPECT_NE(Bad(1, {"ls", store_ + "!m", "--method", "hive"}).find("open the file with"),
              live.npos);
}

TEST_F(ToolTest, RefusesAFileThatIsNoStore) {
    Write("x.fbr", std::string(4096, 'x'));
    EXPECT_EQ(Bad(1, {"ls", store_}).find("fbr: cannot open store " + store_ + ": FSSTATUS_"), 0u);
    EXPECT_EQ(Read("x.fbr"), std::string(4096, 'x'));
}

}  // namespace
