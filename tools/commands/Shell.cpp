// SPDX-License-Identifier: MIT
// A session on one store: shell.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <memory>

#include "tools/commands/Cli.h"
#include "tools/commands/ShellLine.h"
#include "tools/console/Console.h"
#include "tools/console/LineEditor.h"
#include "tools/console/Spawn.h"
#include "tools/format/Text.h"
#include "tools/store/Reach.h"

namespace fbr {
namespace {

// What stands behind the name of a command and the store.
enum class Takes {
    kKeyOrCurrent,  // a key, the current one if none is given
    kKey,           // a key that must be given, since something becomes of it
    kOther,
};

struct ShellCommand {
    const char* name;
    Takes takes;
};

constexpr auto kCommands = std::to_array<ShellCommand>({
    {"check", Takes::kOther},       {"compact", Takes::kOther},
    {"copy", Takes::kKeyOrCurrent}, {"diff", Takes::kKeyOrCurrent},
    {"dump", Takes::kOther},        {"export", Takes::kKeyOrCurrent},
    {"find", Takes::kKeyOrCurrent}, {"get", Takes::kKeyOrCurrent},
    {"hash", Takes::kKeyOrCurrent}, {"import", Takes::kOther},
    {"info", Takes::kOther},        {"ls", Takes::kKeyOrCurrent},
    {"map", Takes::kOther},         {"mv", Takes::kKey},
    {"repair", Takes::kOther},      {"rm", Takes::kKey},
    {"set", Takes::kKey},           {"stat", Takes::kKeyOrCurrent},
    {"tree", Takes::kKeyOrCurrent}, {"view", Takes::kKeyOrCurrent},
});
constexpr std::array kOwn = {"cd", "exit", "help", "pwd"};

constexpr const char* kHelp =
    "cd [KEY]     makes a key the current one; the root if not given\n"
    "pwd          tells the current key\n"
    "exit         ends the shell, as Ctrl-D does\n"
    "Any command of fbr without STORE, with KEY right behind it. A key is counted from the "
    "current\n"
    "one, with a backslash in front from the root; \".\" is the current one, \"..\" the one "
    "above.\n"
    "Quotes keep blanks together: ls 'Program Files' or ls \"Program Files\". LINE | PROGRAM gives "
    "the output to a\n"
    "program. COMMAND --help tells the rest.\n";

class Shell {
  public:
    Shell(StoreName store, std::string method, std::string path)
        : store_(std::move(store)), method_(std::move(method)), path_(std::move(path)) {}

    // The exit status of the last command.
    int Run() {
        LineEditor editor([this](const std::string& line) { return Continue(line); });
        while (const auto line = editor.Read(fmt::format("{} \\{}> ", path_, current_))) {
            const ShellLine parsed = ParseShellLine(*line);
            if (parsed.quote != 0) {
                std::cerr << "fbr: expected a quote at the end of the line" << std::endl;
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
            ChangeTo(words.size() > 1 ? ResolveKey(current_, words[1]) : "");
        } else if (words[0] == "pwd") {
            std::cout << '\\' << current_ << std::endl;
        } else if (words[0] == "help") {
            std::cout << kHelp << std::flush;
        } else {
            std::cout << std::flush;
            status_ = RunAgain(WithStore(words), line.pipe);
        }
    }

    void ChangeTo(const std::string& path) {
        try {
            const Store store(store_, Store::IfMissing::kFail);
            store.OpenKey(Wide(path));
            current_ = path;
            status_ = kExitOk;
        } catch (const std::exception& error) {
            std::cerr << "fbr: " << error.what() << std::endl;
            status_ = kExitFailed;
        }
    }

    // The words of a command line for those of the shell.
    std::vector<std::string> WithStore(const std::vector<std::string>& words) const {
        std::vector<std::string> out = {words[0]};
        if (!method_.empty()) out.insert(out.begin(), {"--method", method_});
        const auto command =
            std::find_if(kCommands.begin(), kCommands.end(),
                         [&](const ShellCommand& c) { return words[0] == c.name; });
        size_t next = 1;
        const bool given = words.size() > 1 && (words[1].empty() || words[1][0] != '-');
        if (command != kCommands.end()) {
            out.push_back(path_);
            const bool key =
                given ? command->takes != Takes::kOther : command->takes == Takes::kKeyOrCurrent;
            if (key) out.push_back('\\' + ResolveKey(current_, given ? words[next++] : ""));
        }
        out.insert(out.end(), words.begin() + static_cast<ptrdiff_t>(next), words.end());
        return out;
    }

    // What may follow behind a line: the rest of a command, of a key, of a value's name.
    std::vector<std::string> Continue(const std::string& text) const {
        const ShellLine line = ParseShellLine(text);
        if (line.piped) return {};
        std::vector<std::string> words = line.words;
        if (!line.atWord) words.emplace_back();
        try {
            if (words.size() <= 1) return CommandsBehind(line, words.empty() ? "" : words[0]);
            if (words.size() == 2) return KeysBehind(line, words[1]);
            return words.size() == 3 ? ValuesBehind(line, words[1], words[2])
                                     : std::vector<std::string>{};
        } catch (const std::exception&) {
            return {};  // a key that is not there, a store that is busy: nothing to offer
        }
    }

    static std::vector<std::string> CommandsBehind(const ShellLine& line, const std::string& word) {
        std::vector<std::string> out;
        const auto add = [&](std::string_view name) {
            if (name.starts_with(word)) {
                out.push_back(Typed(line, std::string(name.substr(word.size()))) + ' ');
            }
        };
        for (const ShellCommand& command : kCommands) add(command.name);
        for (const char* name : kOwn) add(name);
        return out;
    }

    std::vector<std::string> KeysBehind(const ShellLine& line, const std::string& word) const {
        const size_t slash = word.rfind('\\');
        const std::string above = slash == std::string::npos ? "" : word.substr(0, slash + 1);
        const Store store(store_, Store::IfMissing::kFail);
        const Key key = store.OpenKey(Wide(ResolveKey(current_, above)));
        std::vector<std::string> out;
        for (const auto& name : ReachableSubkeys(key, {}))
            Add(line, word.substr(above.size()), name, "\\", out);
        return out;
    }

    std::vector<std::string> ValuesBehind(const ShellLine& line, const std::string& path,
                                          const std::string& word) const {
        const Store store(store_, Store::IfMissing::kFail);
        const Key key = store.OpenKey(Wide(ResolveKey(current_, path)));
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

    const StoreName store_;
    const std::string method_, path_;
    std::string current_;  // without a backslash in front
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
            cli.SetExitStatus(Shell(store, cli.Method(), args->store).Run());
        });
}

}  // namespace fbr
