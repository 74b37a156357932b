// Stores that list what cannot be asked for: every walk goes on, tells of it, and ends with 1.
#include "tests/tool/Tool.h"

namespace {

using namespace tool;

// Two bytes a character, as a container keeps names.
std::string Wide(const std::string& text) {
    std::string units;
    for (const char c : text) units += {c, '\0'};
    return units;
}

class ReachTest : public ToolTest {
  protected:
    // Puts bytes in the place of others of the same number, which must stand there once.
    void Patch(const std::string& file, const std::string& from, const std::string& to) {
        std::string bytes = Read(file);
        const size_t at = bytes.find(from);
        ASSERT_NE(at, bytes.npos) << from;
        ASSERT_EQ(from.size(), to.size());
        bytes.replace(at, from.size(), to);
        Write(file, bytes);
    }
    // Runs the command, which must give `out` and tell `losses` (behind "cannot reach ").
    void Partly(std::vector<std::string> words, const std::string& out,
                std::vector<std::string> losses) {
        words.insert(words.begin(), method_.begin(), method_.end());
        const ProcessResult result = Fbr(words);
        EXPECT_EQ(result.status, 1) << testing::PrintToString(words);
        EXPECT_EQ(result.out, out) << testing::PrintToString(words);
        std::string err;
        for (const std::string& loss : losses) err += "fbr: cannot " + loss + "\n";
        EXPECT_EQ(result.err, err) << testing::PrintToString(words);
    }
    std::vector<std::string> method_;
};

const std::string kVersionLines =
    "{\"key\":\"\"}\n{\"key\":\"\",\"name\":\"FBRVersion\",\"type\":4,\"data\":\"02000000\"}\n";

TEST_F(ReachTest, WalksPastNamesThatLeadElsewhereInAContainer) {
    Good({"create", store_});
    for (const char* key : {"Qzzzzz", "wwwwwx", "vvvvv", "ttttt", "rrrrr", "Q", "z"})
        Good({"set", store_, std::string("k\\") + key, "v", "binary", "01"});
    Good({"set", store_, "k", "Yzzzzz", "binary", "02"});
    Good({"set", store_, "k", "last", "binary", "03"});
    // The escapes of a zero and a backslash, which no name has that was set, and the mark of a
    // value that made room: what is shown of the first four is "Q" again, "", "" and "\".
    Patch("x.fbr", Wide("Qzzzzz"), Wide("Q#0000"));
    Patch("x.fbr", Wide("wwwwwx"), Wide("#0000x"));
    Patch("x.fbr", Wide("vvvvv"), Wide("#FILE"));
    Patch("x.fbr", Wide("ttttt"), Wide("#005C"));
    Patch("x.fbr", Wide("Yzzzzz"), Wide("Y#0000"));
    const std::string in = " in " + store_;
    const std::vector<std::string> keys = {
        "reach key \\k\\" + in + " by its name, which is empty",
        "reach key \\k\\\\" + in + " by its name, which holds a backslash",
        "reach key \\k\\" + in + " by its name, which is empty",
        "reach key \\k\\Q" + in + " by its name, which stands for another, too"};
    const std::string value = "read value \"Y\" of key \\k" + in + ": FSSTATUS_NOT_FOUND (3)";
    std::vector<std::string> all = keys;
    all.insert(all.begin(), value);

    Partly({"tree", store_},
           "\\ (1 value)\n└── k (2 values)\n    ├── \"\"\n    ├── \\\n    ├── \"\"\n"
           "    ├── Q (1 value)\n    ├── Q\n    ├── rrrrr (1 value)\n    └── z (1 value)\n",
           keys);
    const auto lines = [](const std::string& name) {
        const std::string key = "{\"key\":\"\\\\k\\\\" + name + "\"";
        return key + "}\n" + key + ",\"name\":\"v\",\"type\":3,\"data\":\"01\"}\n";
    };
    const std::string content =
        kVersionLines +
        "{\"key\":\"\\\\k\"}\n"
        "{\"key\":\"\\\\k\",\"name\":\"last\",\"type\":3,\"data\":\"03\"}\n" +
        lines("Q") + lines("rrrrr") + lines("z");
    Partly({"export", store_, "--format", "jsonl"}, content, all);
    // A file of what can be had is there.
    Partly({"export", store_, "--format", "jsonl", "-o", File("x.jsonl")}, "", all);
    EXPECT_EQ(Read("x.jsonl"), content);
    Partly({"copy", store_, "--to", File("y.fbr")}, "", all);
    EXPECT_EQ(Good({"export", File("y.fbr"), "--format", "jsonl"}), content);
    Partly({"diff", store_, "--to", File("y.fbr")}, "", all);
    const ProcessResult list = Fbr({"ls", store_, "k"});
    EXPECT_EQ(list.status, 1);
    EXPECT_EQ(list.out,
              "\"\"\\\n\\\\\n\"\"\\\nQ\\\nQ\\\nrrrrr\\\nz\\\n"
              "last  REG_BINARY  1  03\nY     ?           ?  \n");
}

TEST_F(ReachTest, WalksPastZerosInTheNamesOfAHive) {
    method_ = {"--method", "offline"};
    const std::string hive = File("x.dat");
    const auto set = [&](const std::string& key, const std::string& name) {
        Good({"--method", "offline", "set", hive, key, name, "binary", "01"});
    };
    Good({"--method", "offline", "create", hive});
    set("k\\zzAkey\\sub", "v");
    set("k\\QQzzzz\\sub", "v");
    set("k\\QQ", "v");
    set("k\\real", "v");
    set("k", "Vzzzzz");
    set("k", "last");
    Patch("x.dat", "zzAkey", std::string("\0zAkey", 6));
    Patch("x.dat", "QQzzzz", std::string("QQ\0zzz", 6));
    Patch("x.dat", "Vzzzzz", std::string("V\0zzzz", 6));
    const std::string in = " in " + hive + " by its name, which holds a zero";
    const std::vector<std::string> keys = {"reach key \\k\\\\0zAkey" + in,
                                           "reach key \\k\\QQ\\0zzz" + in};
    std::vector<std::string> all = keys;
    all.insert(all.begin(), "reach value \"V\\0zzzz\" of key \\k" + in);
    Partly({"tree", hive},
           "\\ (1 value)\n└── k (2 values)\n    ├── \\0zAkey\n    ├── QQ (1 value)\n"
           "    ├── QQ\\0zzz\n    └── real (1 value)\n",
           keys);
    Partly({"copy", hive, "--to", store_}, "", all);
    EXPECT_EQ(Good({"tree", store_}),
              "\\ (1 value)\n└── k (1 value)\n    ├── QQ (1 value)\n    └── real (1 value)\n");
    Partly({"diff", hive, "--to", store_}, "", all);
    Partly({"ls", hive, "k"},
           "\\0zAkey\\\nQQ\\\nQQ\\0zzz\\\nreal\\\n"
           "V\\0zzzz  ?           ?  \nlast     REG_BINARY  1  01\n",
           {keys[0], keys[1], all[0]});
}

// The size that a damaged value claims is worth no memory: not in its record, and not where the
// store keeps it.
TEST_F(ReachTest, ReadsNoMoreThanThereIs) {
    std::string hex, claim = "\xf0\xff\xff\xff";
    for (int i = 0; i < 2000; ++i) hex += "11";
    Good({"create", store_});
    Good({"set", store_, "k", "a", "binary", hex});
    Good({"set", store_, "k", "b", "binary", "02"});
    const std::string size("\xd0\x07\0\0", 4), streamSize("\xd8\x07\0\0", 4);
    const std::string type("\3\0\0\0", 4), data(8, '\x11');
    const std::string value = "value \"a\" of key \\k in " + store_;
    const std::string begin = "{\"key\":\"\\\\k\"}\n{\"key\":\"\\\\k\",\"name\":\"";
    const std::string b = "\"b\",\"type\":3,\"data\":\"02\"}\n";
    const std::vector<std::string> exported = {"export", store_, "k", "--format", "jsonl"};

    Patch("x.fbr", type + size + data, type + claim + data);
    const ProcessResult record = Fbr(exported);
    EXPECT_EQ(record.status, 1);
    EXPECT_EQ(record.out,
              begin + "a\",\"type\":3,\"data\":\"" + hex + "\"}\n{\"key\":\"\\\\k\",\"name\":" + b);
    EXPECT_EQ(record.err, "fbr: " + value + " claims 4294967280 bytes and has 2000\n");

    Patch("x.fbr", streamSize, "\xf8\xff\xff\xff");
    const ProcessResult stream = Fbr(exported);
    EXPECT_EQ(stream.status, 1);
    EXPECT_EQ(stream.out, begin + "b\",\"type\":3,\"data\":\"02\"}\n");
    EXPECT_EQ(stream.err.find("fbr: cannot read " + value + ", which claims 4294967280 bytes"), 0u)
        << stream.err;
    EXPECT_EQ(Bad(1, {"get", store_, "k", "a"}), stream.err);
}

}  // namespace
