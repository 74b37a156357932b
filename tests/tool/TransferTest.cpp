#include "tests/tool/Tool.h"

namespace {

using namespace tool;

const std::string kHeader = "Windows Registry Editor Version 5.00\r\n";

TEST_F(ToolTest, ExportsAsRegeditDoes) {
    Good({"create", store_});
    Good({"set", store_, "Soft\\App", "Path", "sz", "c:\\dir"});
    Good({"set", store_, "Soft\\App", "", "dword", "31"});
    const std::string expected = kHeader +
                                 "\r\n[Soft]\r\n"
                                 "\r\n[Soft\\App]\r\n@=dword:0000001f\r\n\"Path\"=\"c:\\\\dir\"\r\n"
                                 "\r\n";
    EXPECT_EQ(RegText(Good({"export", store_, "\\Soft"})), expected);
    EXPECT_EQ(Good({"export", store_, "Soft", "-o", File("out.reg")}), "");
    EXPECT_EQ(RegText(Read("out.reg")), expected);
    EXPECT_EQ(RegText(Good({"export", store_, "Soft\\App", "--prefix", "HKEY_CURRENT_USER\\"})),
              kHeader +
                  "\r\n[HKEY_CURRENT_USER\\Soft\\App]\r\n@=dword:0000001f\r\n"
                  "\"Path\"=\"c:\\\\dir\"\r\n\r\n");
    EXPECT_EQ(RegText(Good({"export", store_})).substr(kHeader.size(), 37),
              "\r\n[]\r\n\"FBRVersion\"=dword:00000002\r\n\r\n");
}

TEST_F(ToolTest, ExportsJsonLines) {
    Good({"create", store_});
    Good({"set", store_, "a\\b", "n\u00e9", "sz", "x"});
    EXPECT_EQ(Good({"export", store_, "--format", "jsonl"}),
              "{\"key\":\"\"}\n"
              "{\"key\":\"\",\"name\":\"FBRVersion\",\"type\":4,\"data\":\"02000000\"}\n"
              "{\"key\":\"\\\\a\"}\n"
              "{\"key\":\"\\\\a\\\\b\"}\n"
              "{\"key\":\"\\\\a\\\\b\",\"name\":\"n\u00e9\",\"type\":1,\"data\":\"78000000\"}\n");
}

TEST_F(ToolTest, ImportsIntoANewStoreAndAnOldOne) {
    Write("in.reg", kHeader + "[HKEY\\a\\b]\r\n@=\"one\"\r\n\"gone\"=\"x\"\r\n[HKEY\\c\\d]\r\n");
    Good({"import", store_, File("in.reg"), "--prefix", "\\hkey"});
    EXPECT_EQ(Good({"tree", store_}),
              "\\ (1 value)\n├── a\n│   └── b (2 values)\n└── c\n    └── d\n");
    Write("more.reg",
          "REGEDIT4\n[HKEY\\a\\b]\n@=\"two\"\n\"gone\"=-\n\"never\"=-\n[-HKEY\\C]\n"
          "[-HKEY\\none]\n[HKEY]\n\"top\"=hex:01\n");
    Good({"import", store_, File("more.reg"), "--prefix", "HKEY"});
    EXPECT_EQ(Good({"tree", store_}), "\\ (2 values)\n└── a\n    └── b (1 value)\n");
    EXPECT_EQ(Good({"get", store_, "a\\b"}), "two\n");
    EXPECT_EQ(Good({"get", store_, "\\", "top"}), "01\n");
}

TEST_F(ToolTest, ImportsJsonLinesFromStandardInput) {
    Good({"import", store_, "-"},
         "{\"key\":\"\\\\a\\\\b\",\"name\":\"n\",\"type\":4,\"data\":\"05000000\"}\n"
         "{\"key\":\"\\\\a\\\\c\"}\n"
         "{\"key\":\"\\\\a\\\\b\",\"name\":\"m\",\"type\":1,\"data\":\"78000000\"}\n");
    EXPECT_EQ(Good({"tree", store_, "a"}), "\\a\n├── b (2 values)\n└── c\n");
    EXPECT_EQ(Good({"get", store_, "a\\b", "n"}), "5\n");
}

TEST_F(ToolTest, AppliesNothingOfAFileThatCannotBeRead) {
    Good({"create", store_});
    const std::string before = Read("x.fbr");
    const std::string file = File("in.reg");
    Write("in.reg", kHeader + "[a]\r\n@=\"x\"\r\n\r\nwrong\r\n");
    const std::string expected =
        "fbr: " + file +
        ":5: expected a key in brackets, a value name in quotes, \"@\" or a comment\n";
    EXPECT_EQ(Bad(1, {"import", store_, file}), expected);
    EXPECT_EQ(Bad(1, {"import", File("new.fbr"), file}), expected);
    Write("in.reg", kHeader + "[P\\a]\r\n@=\"x\"\r\n[Px\\a]\r\n");
    EXPECT_EQ(Bad(1, {"import", store_, file, "--prefix", "P"}),
              "fbr: " + file + ":4: expected a key below P, not Px\\a\n");
    Write("in.reg", "{\"key\":\"\"}\n{\"key\":1}\n");
    EXPECT_EQ(Bad(1, {"import", store_, file}),
              "fbr: " + file + ":2: expected a string in quotes for \"key\"\n");
    EXPECT_EQ(Bad(1, {"import", store_, File("none")}),
              "fbr: cannot read file " + File("none") + "\n");
    EXPECT_EQ(Read("x.fbr"), before);
    EXPECT_FALSE(Exists("new.fbr"));
}

TEST_F(ToolTest, LeavesNoHalfWrittenExport) {
    Good({"create", store_});
    Write("out.reg", "old");
    EXPECT_EQ(Bad(1, {"export", store_, "nokey", "-o", File("out.reg")}).substr(0, 21),
              "fbr: cannot open key ");
    EXPECT_EQ(Read("out.reg"), "old");
    for (const char* name : {"no/such/dir.reg", "."}) {
        EXPECT_EQ(Bad(1, {"export", store_, "-o", File(name)})
                      .find("fbr: cannot write file " + File(name) + ": "),
                  0u);
    }
    Good({"export", store_, "-o", File("out.reg")});
    EXPECT_EQ(Read("out.reg"), Good({"export", store_}));
    for (const auto& entry : std::filesystem::directory_iterator(dir_.Path())) {
        const std::string name = Utf8(entry.path().filename());
        EXPECT_TRUE(name == "x.fbr" || name == "out.reg") << name;
    }
}

// Every name and every byte that a store can hold comes through both formats.
TEST_F(ToolTest, CarriesOddNamesThroughBothFormats) {
    std::string lines = "{\"key\":\"\\\\odd\"}\n";
    int number = 0;
    for (const char* name :
         {"-a", "\\r\\n", "a\\nb]", "\\u0001\\u001f\\u007f", "\\ud800", "\\udc00x", "\\uffff", " ",
          "/:*?\\\"<>|#", "#FILE", "#0023", "\xF0\x9F\x98\x80", "[x]", "; c", "@", "a]b[", "."}) {
        const std::string key = "{\"key\":\"\\\\odd\\\\" + std::string(name) + "\"";
        lines += key + "}\n";
        lines += key + ",\"name\":\"" + name + "\",\"type\":1,\"data\":\"0" +
                 std::to_string(number++ % 10) + "0a0d\"}\n";
    }
    lines += "{\"key\":\"\\\\odd\",\"name\":\"a\\\\b\",\"type\":4294967295,\"data\":\"\"}\n";
    Write("in.jsonl", lines);
    Good({"import", store_, File("in.jsonl")});
    const std::string jsonl = Good({"export", store_, "--format", "jsonl"});
    EXPECT_EQ(std::count(jsonl.begin(), jsonl.end(), '\n'), 38);

    Good({"export", store_, "-o", File("out.reg")});
    Good({"import", File("y.fbr"), File("out.reg")});
    EXPECT_EQ(Good({"export", File("y.fbr"), "--format", "jsonl"}), jsonl);
    Write("out.jsonl", jsonl);
    Good({"import", File("z.fbr"), File("out.jsonl")});
    EXPECT_EQ(Good({"export", File("z.fbr"), "--format", "jsonl"}), jsonl);
}

TEST_F(ToolTest, CarriesADeepTree) {
    std::string key;
    for (int i = 0; i < 500; ++i) key += "\\\\k";
    Write("in.jsonl",
          "{\"key\":\"" + key + "\",\"name\":\"n\",\"type\":1,\"data\":\"78000000\"}\n");
    Good({"import", store_, File("in.jsonl")});
    Good({"export", store_, "-o", File("out.reg")});
    Good({"import", File("y.fbr"), File("out.reg")});
    const std::string tree = Good({"tree", File("y.fbr")});
    EXPECT_EQ(std::count(tree.begin(), tree.end(), '\n'), 501);
    EXPECT_NE(tree.find("k (1 value)\n"), std::string::npos);
}

}  // namespace
