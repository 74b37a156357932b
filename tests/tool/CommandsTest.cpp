// SPDX-License-Identifier: MIT
// What sessions cannot type: traces, and the programs of the README.
#include "tests/tool/Tool.h"

namespace {

using namespace tool;
using formats::SortedLines;
using formats::Source;

TEST_F(ToolTest, TracesAnyCommand) {
    const auto traceOf = [this](std::vector<std::string> words, const std::string& folder) {
        words.insert(words.end(), {"--trace", File(folder)});
        Good(words);
        std::string text;
        for (const auto& entry : std::filesystem::directory_iterator(dir_ / folder / "logs"))
            text += Read(folder + "/logs/" + entry.path().filename().string());
        return text;
    };
    Good({"create", store_});
    EXPECT_NE(traceOf({"ls", store_}, "a").find("[FS_CreateDirEx] [ENTER]"), std::string::npos);
    EXPECT_NE(traceOf({"check", store_}, "b").find("[FS_CheckFileEx] [EXIT]"), std::string::npos);
    EXPECT_EQ(traceOf({"ls", store_, "--trace-level", "1"}, "c"), "");
}

// The program of the README does what the README says, and is the one that was built.
TEST_F(ToolTest, TheReadmeProgramWorks) {
    std::string source = Source("examples/hello.cpp");
    ASSERT_GT(source.size(), 100u);
    source.erase(0, source.find('\n') + 1);  // the line on its terms
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
    const auto sample = SortedLines(fbr::ReadReg(Source("examples/sample.reg")));
    EXPECT_GT(sample.size(), 10u);
    EXPECT_EQ(SortedLines(fbr::ReadReg(Good({"export", store_, "HKEY_LOCAL_MACHINE"}))), sample);
}

}  // namespace
