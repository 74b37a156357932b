// SPDX-License-Identifier: MIT
// A session on one store: shell.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <utility>

#include "tools/commands/Cli.h"
#include "tools/commands/ShellLine.h"
#include "tools/commands/ShellWords.h"
#include "tools/console/Console.h"
#include "tools/console/LineEditor.h"
#include "tools/console/Spawn.h"
#include "tools/format/Text.h"
#include "tools/store/Reach.h"

namespace fbr {
namespace {

constexpr std::array kOwn = {"cd", "exit", "help", "pwd", "quit"};

bool IsOwn(const std::string& word) {
    return std::find(kOwn.begin(), kOwn.end(), word) != kOwn.end();
}

// What a line would have to have to be one that can be done; empty for one that is.
std::string ExpectedOf(const ShellLine& line) {
    if (const char* expected = line.Expected()) return expected;
    const bool own = !line.words.empty() && IsOwn(line.words[0]);
    if (line.piped && line.words.empty()) return "a command in front of |";
    if (line.piped && own) return fmt::format("no | behind {}", line.words[0]);
    if (line.piped && line.pipe.find_first_not_of(" \t") == line.pipe.npos)
        return "a program behind |, to which the output goes";
    const bool takesOne = own && (line.words[0] == "cd" || line.words[0] == "help");
    if (own && line.words.size() > (takesOne ? 2 : 1))
        return fmt::format("{} behind {}", takesOne ? "one word" : "nothing", line.words[0]);
    return "";
}

// What files of lines have around them on some systems.
void TakeOffEnds(std::string& line, bool isFirst) {
    if (isFirst && line.starts_with(kUtf8Mark)) line.erase(0, kUtf8Mark.size());
    if (line.ends_with('\r')) line.pop_back();
}

constexpr const char* kHelp =
    "cd [KEY]     makes a key the current one; the root if not given\n"
    "pwd          tells the current key\n"
    "help COMMAND tells of one\n"
    "exit         ends the shell, as Ctrl-D does\n"
    "Any command of fbr without STORE: ls KEY, set KEY NAME TYPE DATA, mv KEY NAME --to KEY NAME. "
    "Only\n"
    "copy and diff name the other store: copy KEY --to STORE KEY. A key is counted from the "
    "current "
    "one,\n"
    "with a backslash in front from the root; \".\" is the current one, \"..\" the one above.\n"
    "Quotes keep blanks together: ls 'Program Files' or ls \"Program Files\". LINE | PROGRAM gives "
    "the output\n"
    "to a program. A line that begins with # says nothing.\n";

class Shell {
  public:
    Shell(const Cli& cli, StoreName store, const std::string& path)
        : grammar_(cli.AsGrammar()),
          shared_(cli.SharedWords()),
          store_(std::move(store)),
          place_{path, cli.Method(), ""} {}

    // The exit status of the last command.
    int Run() {
        LineEditor editor([this](const std::string& line) { return Continue(line); });
        bool isFirst = true;
        while (auto line = editor.Read(fmt::format("{} \\{}> ", place_.store, place_.key))) {
            if (!InputIsTerminal()) TakeOffEnds(*line, std::exchange(isFirst, false));
            const ShellLine parsed = ParseShellLine(*line);
            if (const std::string expected = ExpectedOf(parsed); !expected.empty()) {
                std::cerr << "fbr: expected " << expected << std::endl;
                status_ = kExitUsage;
                continue;
            }
            if (parsed.words.empty()) continue;
            if (parsed.words[0] == "exit" || parsed.words[0] == "quit") break;
            Do(parsed);
            // Who typed it goes on at the next prompt; a list of lines ends with the one ended.
            if (status_ == kExitInterrupted && !InputIsTerminal()) break;
        }
        return status_;
    }

  private:
    void Do(const ShellLine& line) {
        const std::vector<std::string>& words = line.words;
        if (words[0] == "cd") {
            ChangeTo(words.size() > 1 ? ResolveKey(place_.key, words[1]) : "");
        } else if (words[0] == "pwd") {
            std::cout << '\\' << place_.key << std::endl;
        } else if (words[0] != "help") {
            Run(WithStore(grammar_, place_, words), line.pipe);
        } else if (words.size() > 1 && !IsOwn(words[1])) {
            TellOf(words[1]);
        } else {
            std::cout << kHelp << std::flush;
        }
    }

    // What is no command is told as one that is typed.
    void TellOf(const std::string& command) {
        const auto is = [&](const GrammarCommand& one) { return one.name == command; };
        const bool known = std::ranges::any_of(grammar_.commands, is);
        Run(known ? std::vector<std::string>{command, "--help"} : std::vector{command}, "");
    }

    void Run(std::vector<std::string> words, const std::string& pipe) {
        std::cout << std::flush;
        words.insert(words.begin(), shared_.begin(), shared_.end());
        words.insert(words.begin(), kInShell);
        status_ = RunAgain(words, pipe);
    }

    void ChangeTo(const std::string& path) {
        try {
            const Store store(store_, Store::IfMissing::kFail);
            store.OpenKey(Wide(path));
            place_.key = path;
            status_ = kExitOk;
        } catch (const std::exception& error) {
            std::cerr << "fbr: " << error.what() << std::endl;
            status_ = kExitFailed;
        }
    }

    // What may follow behind a line: the rest of a command, of a key, of a value's name.
    std::vector<std::string> Continue(const std::string& text) const {
        const ShellLine line = ParseShellLine(text);
        if (line.piped) return {};
        std::vector<std::string> words = line.words;
        if (!line.atWord) words.emplace_back();
        try {
            const ShellRole role = RoleOfLast(grammar_, words);
            if (role.kind == ShellRole::kCommand) return CommandsBehind(line, words.back());
            if (role.kind == ShellRole::kKey) return KeysBehind(line, words.back());
            if (role.kind == ShellRole::kValue) return ValuesBehind(line, role.key, words.back());
        } catch (const std::exception&) {
            // a key that is not there, a store that is busy: nothing to offer
        }
        return {};
    }

    std::vector<std::string> CommandsBehind(const ShellLine& line, const std::string& word) const {
        std::vector<std::string> out;
        const auto add = [&](std::string_view name) {
            if (name.starts_with(word)) {
                out.push_back(Typed(line, std::string(name.substr(word.size()))) + ' ');
            }
        };
        for (const GrammarCommand& command : grammar_.commands) add(command.name);
        for (const char* name : kOwn) add(name);
        return out;
    }

    std::vector<std::string> KeysBehind(const ShellLine& line, const std::string& word) const {
        const size_t slash = word.rfind('\\');
        const std::string above = slash == std::string::npos ? "" : word.substr(0, slash + 1);
        const Store store(store_, Store::IfMissing::kFail);
        const Key key = store.OpenKey(Wide(ResolveKey(place_.key, above)));
        std::vector<std::string> out;
        for (const auto& name : ReachableSubkeys(key, {}))
            Add(line, word.substr(above.size()), name, "\\", out);
        return out;
    }

    std::vector<std::string> ValuesBehind(const ShellLine& line, const std::string& path,
                                          const std::string& word) const {
        const Store store(store_, Store::IfMissing::kFail);
        const Key key = store.OpenKey(Wide(ResolveKey(place_.key, path)));
        std::vector<std::string> out;
        for (const auto& name : ReachableValues(key, {})) Add(line, word, name, "", out);
        return out;
    }

    static void Add(const ShellLine& line, const std::string& begin, WStringView name,
                    const char* behind, std::vector<std::string>& out) {
        const std::string whole = Utf8(name);
        if (whole.starts_with(begin))
            out.push_back(Typed(line, whole.substr(begin.size())) + behind);
    }

    const Grammar grammar_;
    const std::vector<std::string> shared_;  // what the lines have from the shell's own words
    const StoreName store_;
    ShellPlace place_;
    int status_ = kExitOk;
};

struct ShellArguments {
    std::string store;
};

}  // namespace

void AddShellCommand(Cli& cli) {
    const auto args = std::make_shared<ShellArguments>();
    cli.Add("shell", "Work on one store, a command a line, with history and completion")
        .Example("fbr shell settings.fbr")
        .Example("fbr shell settings.hiv --method offline")
        .Example("echo 'ls Software' | fbr shell settings.fbr")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Does([&cli, args] {
            const StoreName store = cli.StoreAt(args->store);
            Store(store, Store::IfMissing::kFail).Close();  // tells at once what is wrong with it
            cli.SetExitStatus(Shell(cli, store, args->store).Run());
        });
}

}  // namespace fbr
