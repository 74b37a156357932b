// SPDX-License-Identifier: MIT
// What the table of commands gives besides the commands: their help, the manual page, and what
// shells complete words by.
#include <regex>
#include <set>
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
    // The options that the help of a command has, short ones and long ones.
    std::set<std::string> OptionsOf(const std::string& command) {
        static const std::regex kLine("\n  (-[^ ]*)");
        const std::string help = Good({command, "--help"});
        std::set<std::string> options;
        for (std::sregex_iterator at(help.begin(), help.end(), kLine), end; at != end; ++at) {
            std::istringstream names((*at)[1].str());
            for (std::string name; std::getline(names, name, ',');) options.insert(name);
        }
        EXPECT_GE(options.size(), 8u) << help;
        return options;
    }
};

// As a word of its own.
bool Has(const std::string& text, const std::string& word) {
    const auto inWord = [&text](size_t at) {
        return at < text.size() &&
               (isalnum(static_cast<unsigned char>(text[at])) || text[at] == '-');
    };
    for (size_t at = 0; (at = text.find(word, at)) != text.npos; ++at)
        if (!inWord(at + word.size()) && (at == 0 || !inWord(at - 1))) return true;
    return false;
}

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

TEST_F(HelpTest, ManualAndCompletionsHaveEveryWord) {
    std::set<std::string> words;
    for (const std::string& command : Commands()) {
        words.insert(command);
        words.merge(OptionsOf(command));
    }
    for (const std::string kind : {"man", "bash", "zsh", "fish", "powershell"}) {
        std::string text = Good({"generate", kind});
        if (kind == "man") text = std::regex_replace(text, std::regex(R"(\\fB|\\fR|\\fI|\\)"), "");
        if (kind == "fish") {
            text = std::regex_replace(text, std::regex(" -l "), " --");
            text = std::regex_replace(text, std::regex(" -s "), " -");
        }
        for (const std::string& word : words)
            EXPECT_TRUE(Has(text, word)) << kind << " lacks " << word;
    }
}

#ifndef _WIN32
// Each script is good for its shell, where the shell is there, and what bash offers behind a
// command is what the command has.
TEST_F(HelpTest, ShellsTakeTheCompletions) {
    const auto taken = [this](const std::string& program, const std::string& kind,
                              std::vector<std::string> words) {
        if (!std::filesystem::exists("/usr/bin/" + program)) return;
        Write(kind, Good({"generate", kind}));
        words.push_back(File(kind));
        const ProcessResult result = support::RunProcess("/usr/bin/" + program, words);
        EXPECT_EQ(result.status, 0) << kind;
        EXPECT_EQ(result.err, "") << kind;
    };
    taken("groff", "man", {"-man", "-ww", "-z"});
    taken("zsh", "zsh", {"-n"});
    taken("fish", "fish", {"-n"});
    taken("pwsh", "powershell", {"-NoProfile", "-File"});

    const std::string script = Good({"generate", "bash"});
    const auto offered = [&script](const std::string& words) {
        const ProcessResult result = support::RunProcess(
            "/bin/bash", {"-s"},
            script + "COMP_WORDS=(fbr " + words +
                ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_fbr\necho \"${COMPREPLY[@]}\"\n");
        EXPECT_EQ(result.err, "");
        std::istringstream out(result.out);
        std::set<std::string> all;
        for (std::string word; out >> word;) all.insert(word);
        return all;
    };
    using Set = std::set<std::string>;
    const std::vector<std::string> commands = Commands();
    EXPECT_EQ(offered("''"), Set(commands.begin(), commands.end()));
    for (const std::string& command : commands) {
        Set options = OptionsOf(command), found = offered("--color never " + command + " x -");
        found.erase("--version");
        EXPECT_EQ(found, options) << command;
    }
    EXPECT_EQ(offered("export --format ''"), (Set{"reg", "jsonl"}));
    EXPECT_EQ(offered("--trace ls exp"), Set{"export"});
    for (const std::string word : {"export x", "--method ''"})  // a file, a word of an option
        EXPECT_EQ(offered(word), Set{}) << word;
}
#endif

}  // namespace
