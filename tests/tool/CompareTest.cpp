// copy and diff, between the kinds of stores that both systems have.
#include "tests/tool/Tool.h"

namespace {

using namespace tool;

class TwoStores : public ToolTest {
  protected:
    // Ends of a comparison or copy, `there` with what stands in front of it.
    ProcessResult Diff(const std::string& here, const std::vector<std::string>& there,
                       const std::string& format = "lines") {
        std::vector<std::string> words = {"diff", here, "--format", format, "--to"};
        words.insert(words.end(), there.begin(), there.end());
        return Fbr(words);
    }
    void SetUp() override {
        Good({"create", store_});
        Good({"set", store_, "Soft\\App", "Path", "sz", "c:\\dir"});
        Good({"set", store_, "Soft\\App", "", "dword", "31"});
        Good({"set", store_, "Soft\\App\\deep\\er", "none", "none"});
        Good({"set", store_, "Soft\\old", "x", "0x12345678", "--hex", "00"});
    }
    const std::string offline_ = File("x.dat");
};

TEST_F(TwoStores, ACopyGoesThroughAHiveAndComesBackTheSame) {
    const std::string y = File("y.fbr"), part = File("part.fbr");
    EXPECT_EQ(Good({"copy", store_, "--to", "--to-method", "offline", offline_}), "");
    // The hive has an unnamed value, and none that is called "(Default)".
    EXPECT_EQ(RegText(Good({"--method", "offline", "export", offline_, "Soft\\App"})),
              RegText(Good({"export", store_, "Soft\\App"})));
    Good({"--method", "offline", "copy", offline_, "--to", y});
    EXPECT_EQ(Diff(store_, {y}).status, 0);
    EXPECT_EQ(Diff(store_, {"--to-method=offline", offline_}).status, 0);
    EXPECT_EQ(Good({"export", y}), Good({"export", store_}));

    // A key alone, to another name; what is there already stays, but for what the copy brings.
    Good({"copy", store_, "soft\\APP", "--to", part, "New\\place"});
    Good({"set", part, "New\\place", "Path", "sz", "changed"});
    Good({"set", part, "New\\place", "other", "sz", "kept"});
    Good({"copy", store_, "Soft\\App", "--to", part, "new\\PLACE"});
    EXPECT_EQ(Good({"get", part, "New\\place", "other"}), "kept\n");
    EXPECT_EQ(Diff(store_, {part}).status, 3);
    Good({"rm", part, "New\\place", "other"});
    EXPECT_EQ(Fbr({"diff", part, "New\\place", "--to", store_, "Soft\\App"}).status, 0);
}

TEST_F(TwoStores, ADifferenceIsAFileThatMakesThemTheSame) {
    const std::string y = File("y.fbr");
    Good({"copy", store_, "--to", y});
    Good({"set", y, "SOFT\\APP", "PATH", "expand_sz", "c:\\dir"});
    Good({"rm", y, "Soft\\App", ""});
    Good({"rm", y, "-r", "Soft\\App\\deep"});
    Good({"set", y, "Soft\\App\\more\\keys", "", "sz", "z"});
    Good({"set", y, "Soft\\old", "y", "binary", std::string(200, '1')});
    Good({"set", store_, "Soft\\old", "y", "binary", std::string(198, '1') + "22"});

    const ProcessResult lines = Diff(store_, {y});
    EXPECT_EQ(lines.status, 3);
    EXPECT_EQ(lines.err, "");
    const std::string bytes =
        "REG_BINARY 11 11 11 11 11 11 11 11 11 11 11 11 11 11 11 11 11 11 11 "
        "11 11 11 11 11 11 11 11 11 11 11 11 11 ...";
    EXPECT_EQ(lines.out,
              "- \\Soft\\App (Default) REG_DWORD 31 (0x0000001f)\n"
              "~ \\Soft\\App \"Path\" REG_SZ c:\\dir -> REG_EXPAND_SZ c:\\dir\n"
              "- \\Soft\\App\\deep\\\n"
              "+ \\Soft\\App\\more\\\n"
              "~ \\Soft\\old \"y\" " +
                  bytes + " -> " + bytes + " (from byte 99 on)\n");

    // Both ways, as a file and on standard output; a key of its own stands in front.
    const std::string file = File("d.reg");
    EXPECT_EQ(Fbr({"diff", store_, "Soft", "--format", "reg", "-o", file, "--prefix", "HKCU",
                   "--to", y, "Soft"})
                  .status,
              3);
    EXPECT_EQ(RegText(Read("d.reg")).substr(40, 37),
              "[HKCU\\Soft\\App]\r\n@=-\r\n\"Path\"=hex(2):6");
    Good({"copy", store_, "--to", File("z.fbr")});
    Good({"import", File("z.fbr"), file, "--prefix", "HKCU"});
    EXPECT_EQ(Diff(File("z.fbr"), {y}).out, "");
    Good({"import", y, "-"}, Diff(y, {store_}, "reg").out);
    EXPECT_EQ(Diff(y, {store_}).status, 0);
}

// The unnamed value and one that is called "(Default)" are two in a hive and one in a container.
TEST_F(TwoStores, TheUnnamedValueKeepsItsPlace) {
    const auto offline = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {"--method", "offline"});
        return Good(words);
    };
    offline({"create", offline_});
    offline({"set", offline_, "k", "", "sz", "unnamed"});
    offline({"set", offline_, "k", "(default)", "sz", "called"});
    EXPECT_EQ(offline({"get", offline_, "k"}), "unnamed\n");
    EXPECT_EQ(offline({"get", offline_, "k", "(Default)"}), "called\n");
    offline({"rm", offline_, "k", "(default)"});
    offline({"set", offline_, "k", "(Default)", "sz", "called"});
    EXPECT_EQ(offline({"ls", offline_, "k"}),
              "(Default)    REG_SZ  16  unnamed\n\"(Default)\"  REG_SZ  14  called\n");
    offline({"export", offline_, "-o", File("h.reg")});
    Good({"--method", "offline", "import", File("y.dat"), File("h.reg")});
    EXPECT_EQ(Fbr({"--method", "offline", "diff", offline_, "--to", "--to-method", "offline",
                   File("y.dat")})
                  .status,
              0);

    const ProcessResult copy = Fbr({"--method", "offline", "copy", offline_, "--to", store_});
    EXPECT_EQ(copy.status, 1);
    EXPECT_EQ(copy.err, "fbr: value \"(Default)\" of key \\k in " + offline_ +
                            " is left out: " + store_ + " keeps the unnamed value by that name\n");
    EXPECT_EQ(Good({"get", store_, "k"}), "unnamed\n");
    EXPECT_EQ(Good({"get", store_, "k", "(Default)"}), "unnamed\n");
}

TEST_F(TwoStores, RefusesWhatCannotWork) {
    const std::string before = Read("x.fbr");
    EXPECT_EQ(Bad(1, {"copy", store_, "none", "--to", File("new.fbr")}),
              "fbr: cannot open key \\none in " + store_ + ": FSSTATUS_NOT_FOUND (3)\n");
    EXPECT_EQ(Bad(1, {"diff", store_, "--to", File("new.fbr")}),
              "fbr: cannot open store " + File("new.fbr") + ": FSSTATUS_NOT_FOUND (3)\n");
    EXPECT_FALSE(Exists("new.fbr"));
    for (const char* below : {"soft", "Soft\\App\\deep"}) {
        EXPECT_EQ(Bad(2, {"copy", store_, "Soft", "--to", File(".") + "/x.fbr", below}),
                  "fbr: expected a key outside of \\Soft to copy it to\n");
    }
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"copy", store_},
          {"diff", store_, "--to"},
          {"copy", store_, "--to", "--to-method", "offline"},
          {"copy", store_, "a", "--to", store_, "b", "c"},
          {"diff", store_, "--to", store_, "--format", "xml"}}) {
        EXPECT_EQ(Bad(2, words).substr(0, 5), "fbr: ") << testing::PrintToString(words);
    }
    EXPECT_EQ(Read("x.fbr"), before);
    // Beside itself is another matter.
    Good({"copy", store_, "Soft", "--to", store_, "Software"});
    EXPECT_EQ(Fbr({"diff", store_, "Soft", "--to", store_, "SOFTWARE"}).status, 0);
}

}  // namespace
