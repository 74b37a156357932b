// SPDX-License-Identifier: MIT
// What the table of commands gives besides the commands: their help.
#include <sstream>

#include "tests/tool/Tool.h"

namespace {

using namespace tool;

class HelpTest : public ToolTest {
  protected:
    std::vector<std::string> Commands() {
        std::istringstream help(Good({"--help"}));
        std::vector<std::string> names;
        bool below = false;
        for (std::string line; std::getline(help, line);) {
            if (line.empty()) below = false;
            if (below) names.push_back(line.substr(2, line.find(' ', 2) - 2));
            if (line == "Subcommands:") below = true;
        }
        EXPECT_GT(names.size(), 15u);
        return names;
    }
};

TEST_F(HelpTest, OfEveryCommandIsWhole) {
    for (const std::string& name : Commands()) {
        const std::string help = Good({name, "--help"});
        for (const std::string part : {"--method METHOD", "\nExit status:\n  0    done\n",
                                       "  4    busy", "\nExamples:\n  fbr ", "  130  interrupted"})
            EXPECT_NE(help.find(part), help.npos) << name << " lacks " << part;
        const std::string examples = help.substr(help.find("\nExamples:\n"));
        size_t count = 0;
        for (size_t at = 0; (at = examples.find("fbr " + name + " ", at)) != examples.npos; ++at)
            ++count;
        EXPECT_GE(count, 2u) << name;
        // A slip of the finger leads back.
        EXPECT_NE(Bad(2, {name + "x"}).find("did you mean \"" + name + "\"?"), std::string::npos);
    }
    EXPECT_EQ(Bad(2, {"xyzzy"}).find("fbr: expected a command, not \"xyzzy\"\n"), 0u);
}

}  // namespace
