#include "tests/tool/Tool.h"

namespace {

using namespace tool;
using formats::ItemsOf;

std::string Source(const std::string& name) {
    const Bytes bytes = support::ReadBytes(std::filesystem::path(ZRFS_SOURCE_DIR) / name);
    return std::string(bytes.begin(), bytes.end());
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
    Write("sample.reg", Source("examples/sample.reg"));
    Good({"import", store_, File("sample.reg")});
    Good({"export", store_, "HKEY_LOCAL_MACHINE", "-o", File("out.reg")});
    const auto sorted = [](const std::string& bytes) {
        auto items = ItemsOf(fbr::ReadReg(bytes));
        std::vector<std::string> lines;
        for (const auto& item : items) lines.push_back(testing::PrintToString(item));
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    EXPECT_GT(sorted(Read("out.reg")).size(), 10u);
    EXPECT_EQ(sorted(Read("out.reg")), sorted(Read("sample.reg")));
}

}  // namespace
