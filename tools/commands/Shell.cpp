// SPDX-License-Identifier: MIT
// A session on one store: shell.
#include <fmt/format.h>

#include <array>
#include <iostream>
#include <memory>

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

constexpr std::array kOwn = {"cd", "exit", "help", "pwd"};

constexpr const char* kHelp =
    "cd [KEY]     makes a key the current one; the root if not given\n"
    "pwd          tells the current key\n"
    "exit         ends the shell, as Ctrl-D does\n"
    "Any command of fbr without STORE: ls KEY, set KEY NAME TYPE DATA, mv KEY NAME --to KEY NAME. "
    "Only\n"
    "copy and diff name the other store: copy KEY --to STORE KEY. A key is counted from the "
    "current "
    "one,\n"
    "with a backslash in front from the root; \".\" is the current one, \"..\" the one above.\n"
    "Quotes keep blanks together: ls 'Program Files' or ls \"Program Files\". LINE | PROGRAM gives "
    "the output\n"
    "to a program. A line that begins with # says nothing. COMMAND --help tells the rest.\n";

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
        while (const auto line = editor.Read(fmt::format("{} \\{}> ", place_.store, place_.key))) {
            const ShellLine parsed = ParseShellLine(*line);
            if (const char* expected = parsed.Expected()) {
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
        } else if (words[0] == "help") {
            std::cout << kHelp << std::flush;
        } else {
            std::cout << std::flush;
            std::vector<std::string> all = WithStore(grammar_, place_, words);
            all.insert(all.begin(), shared_.begin(), shared_.end());
            status_ = RunAgain(all, line.pipe);
        }
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
        .Example("echo 'ls Software' | fbr shell settings.fbr")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Does([&cli, args] {
            const StoreName store = cli.StoreAt(args->store);
            Store(store, Store::IfMissing::kFail).Close();  // tells at once what is wrong with it
            cli.SetExitStatus(Shell(cli, store, args->store).Run());
        });
}

}  // namespace fbr
