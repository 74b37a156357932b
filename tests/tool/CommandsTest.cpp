// What sessions cannot type: data made up, bytes out of place, and the programs of the README.
#include "tests/tool/Tool.h"

namespace {

using namespace tool;
using formats::ItemsOf;
using formats::Source;

// Data over the size that one question brings.
TEST_F(ToolTest, ReadsDataOfEverySize) {
    Good({"create", store_});
    for (const size_t size : {1023u, 1024u, 1025u, 3000u}) {
        std::string hex, bytes;
        for (size_t i = 0; i < size; ++i) {
            hex += {"0123456789abcdef"[i % 16], '5'};
            bytes += static_cast<char>(16 * (i % 16) + 5);
        }
        Good({"set", store_, "k", "v", "binary", hex});
        EXPECT_EQ(Good({"get", store_, "k", "v", "--raw"}), bytes) << size;
    }
}

TEST_F(ToolTest, TellsWhatItKnows) {
    // Where a system has no live registry it has no mounted hives either, and says so.
    const std::string live = Fbr({"--method", "native", "ls", "\\registry\\user"}).err;
    if (live.empty()) return;
    Good({"create", store_});
    EXPECT_NE(live.find("(FSSTATUS_NOT_IMPLEMENTED); the live registry is a part of Windows"),
              live.npos)
        << live;
    EXPECT_NE(Bad(1, {"ls", store_ + "!m", "--method", "hive"}).find("open the file with"),
              live.npos);
}

// Every name and every byte that a store can hold comes through both formats, and so does depth.
TEST_F(ToolTest, CarriesOddNamesAndADeepTreeThroughBothFormats) {
    std::string lines = "{\"key\":\"\\\\odd\"}\n", deep;
    int number = 0;
    for (const char* name :
         {"-a", "\\r\\n", "a\\nb]", "\\u0001\\u001f\\u007f", "\\ud800", "\\udc00x", "\\uffff", " ",
          "/:*?\\\"<>|#", "#FILE", "#0023", "\xF0\x9F\x98\x80", "[x]", "; c", "@", "a]b[", "."}) {
        const std::string key = "{\"key\":\"\\\\odd\\\\" + std::string(name) + "\"";
        lines += key + "}\n" + key + ",\"name\":\"" + name + "\",\"type\":1,\"data\":\"0" +
                 std::to_string(number++ % 10) + "0a0d\"}\n";
    }
    lines += "{\"key\":\"\\\\odd\",\"name\":\"a\\\\b\",\"type\":4294967295,\"data\":\"\"}\n";
    for (int i = 0; i < 500; ++i) deep += "\\\\k";
    lines += "{\"key\":\"" + deep + "\",\"name\":\"n\",\"type\":1,\"data\":\"78000000\"}\n";
    Good({"import", store_, "-"}, lines);
    const std::string jsonl = Good({"export", store_, "--format", "jsonl"});
    EXPECT_EQ(std::count(jsonl.begin(), jsonl.end(), '\n'), 38 + 501);
    Good({"export", store_, "-o", File("out.reg")});
    Good({"import", File("y.fbr"), File("out.reg")});
    EXPECT_EQ(Good({"export", File("y.fbr"), "--format", "jsonl"}), jsonl);
    Good({"import", File("z.fbr"), "-"}, jsonl);
    EXPECT_EQ(Good({"export", File("z.fbr"), "--format", "jsonl"}), jsonl);
}

// The size that a damaged value claims is worth no memory: not in its record, and not where the
// store keeps it.
TEST_F(ToolTest, ReadsNoMoreThanThereIs) {
    std::string hex;
    for (int i = 0; i < 2000; ++i) hex += "11";
    const auto patch = [&](const std::string& from, const std::string& to) {
        std::string bytes = Read("x.fbr");
        Write("x.fbr", bytes.replace(bytes.find(from), to.size(), to));
    };
    Good({"create", store_});
    Good({"set", store_, "k", "a", "binary", hex});
    Good({"set", store_, "k", "b", "binary", "02"});
    const std::string value = "value \"a\" of key \\k in " + store_;
    const std::string begin = "{\"key\":\"\\\\k\"}\n{\"key\":\"\\\\k\",\"name\":\"";
    const std::string b = "\"b\",\"type\":3,\"data\":\"02\"}\n";
    const std::vector<std::string> exported = {"export", store_, "k", "--format", "jsonl"};

    patch(std::string("\3\0\0\0\xd0\x07\0\0\x11\x11", 10),
          std::string("\3\0\0\0\xf0\xff\xff\xff", 8));
    const ProcessResult record = Fbr(exported);
    EXPECT_EQ(record.status, 1);
    EXPECT_EQ(record.out,
              begin + "a\",\"type\":3,\"data\":\"" + hex + "\"}\n{\"key\":\"\\\\k\",\"name\":" + b);
    EXPECT_EQ(record.err, "fbr: " + value + " claims 4294967280 bytes and has 2000\n");

    patch(std::string("\xd8\x07\0\0", 4), "\xf8\xff\xff\xff");
    const ProcessResult stream = Fbr(exported);
    EXPECT_EQ(stream.status, 1);
    EXPECT_EQ(stream.out, begin + b.substr(1));
    EXPECT_TRUE(stream.err.starts_with("fbr: cannot read " + value + ", which claims 4294967280"))
        << stream.err;
    EXPECT_EQ(Bad(1, {"get", store_, "k", "a"}), stream.err);
}

// The program of the README does what the README says, and is the one that was built.
TEST_F(ToolTest, TheReadmeProgramWorks) {
    const std::string source = Source("examples/hello.cpp");
    ASSERT_GT(source.size(), 100u);
    EXPECT_NE(Source("README.md").find("```cpp\n" + source + "```"), std::string::npos);
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(dir_.Path());
    const ProcessResult result = support::RunProcess(support::ProgramNamed("hello"), {});
    std::filesystem::current_path(before);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.substr(0, 11), "Count is 42");
    EXPECT_EQ(Good({"get", File("hello.fbr"), "Software\\Hello", "Count"}), "42\n");
}

// The sample goes in and comes out as regedit would have it.
TEST_F(ToolTest, TheSampleRoundTrips) {
    Good({"import", store_, "-"}, Source("examples/sample.reg"));
    const auto sorted = [](const std::string& bytes) {
        std::vector<std::string> lines;
        for (const auto& item : ItemsOf(fbr::ReadReg(bytes)))
            lines.push_back(testing::PrintToString(item));
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    const auto sample = sorted(Source("examples/sample.reg"));
    EXPECT_GT(sample.size(), 10u);
    EXPECT_EQ(sorted(Good({"export", store_, "HKEY_LOCAL_MACHINE"})), sample);
}

}  // namespace
