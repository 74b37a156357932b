// SPDX-License-Identifier: MIT
// batch: several commands under one lock.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>
#include <sstream>

#include "tools/commands/Cli.h"
#include "tools/commands/Ends.h"
#include "tools/commands/Grammar.h"
#include "tools/commands/ShellLine.h"
#include "tools/commands/Shown.h"
#include "tools/console/ReadFile.h"
#include "tools/console/TellError.h"
#include "tools/format/Text.h"

namespace fbr {
namespace {

// Those that open a store as one opens it to work in it. The others look at the file by themselves,
// and would wait for the lock that the batch has.
constexpr std::array kAllowed = {"copy", "cp",   "create", "diff", "export", "find",
                                 "get",  "hash", "import", "ls",   "mv",     "rm",
                                 "set",  "stat", "tree",   "view"};

struct BatchArguments {
    std::string file;
    bool stop = false, goOn = false;
};

struct Line {
    uint64_t number;
    std::vector<std::string> words;
    std::string expected;  // where it can be no command
};

// What is no command at all is told by who reads the words.
bool CannotStandIn(const Grammar& grammar, const std::string& command) {
    const auto is = [&](const auto& one) { return one.name == command; };
    return std::ranges::any_of(grammar.commands, is) &&
           std::find(kAllowed.begin(), kAllowed.end(), command) == kAllowed.end();
}

Line LineOf(const Grammar& grammar, uint64_t number, const ShellLine& parsed) {
    Line line{number, parsed.words, ""};
    if (const char* expected = parsed.Expected())
        line.expected = expected;
    else if (parsed.piped)
        line.expected = "no | outside of quotes";
    else if (CannotStandIn(grammar, line.words[0]))
        line.expected = fmt::format("a command that a batch can have, not \"{}\"", line.words[0]);
    return line;
}

// All lines that are not empty.
std::vector<Line> LinesOf(const Grammar& grammar, const std::string& file) {
    std::istringstream in(Utf8(DecodeTextFile(ReadInput(file), [](auto) { return false; })));
    std::vector<Line> lines;
    uint64_t number = 0;
    for (std::string text; std::getline(in, text);) {
        ++number;
        if (text.ends_with('\r')) text.pop_back();
        const ShellLine parsed = ParseShellLine(text);
        if (!parsed.words.empty() || parsed.piped) lines.push_back(LineOf(grammar, number, parsed));
    }
    return lines;
}

std::string Where(const std::string& file, const Line& line) {
    return fmt::format("{}:{}", file, line.number);
}

// Does `work` with a command line of its own for the words of a line.
template <typename Work>
auto WithLine(const Cli& all, const Line& line, const std::string& file, const Work& work) {
    Cli cli;
    AddCommands(cli);
    cli.StandAt(Where(file, line));
    std::vector<std::string> words = line.words;
    const auto shared = all.SharedWords();
    words.insert(words.begin(), shared.begin(), shared.end());
    if (!all.Method().empty()) words.insert(words.begin(), {"--method", all.Method()});
    return work(cli, std::move(words));
}

int RunLine(const Cli& all, const Line& line, const std::string& file) {
    return WithLine(all, line, file, [](Cli& cli, auto words) { return cli.RunOne(words); });
}

// False, and told, where that cannot be done.
bool Rehearse(const Cli& all, const Line& line, const std::string& file) {
    if (line.expected.empty())
        return WithLine(all, line, file, [](Cli& cli, auto words) { return cli.Rehearse(words); });
    TellError(fmt::format("{}: expected {}", Where(file, line), line.expected));
    return false;
}

// Throws where the words of any line are wrong, all of which are told, before the first is done.
void RehearseAll(const Cli& all, const std::vector<Line>& lines, const std::string& file) {
    uint64_t wrong = 0;
    for (const Line& line : lines) {
        StopIfInterrupted();
        if (!Rehearse(all, line, file)) ++wrong;
    }
    if (wrong != 0)
        throw UsageError(fmt::format("{}: {} of {} cannot be done, and none was", file, wrong,
                                     Counted(lines.size(), "command")));
}

bool IsFailure(int status) {
    return status != kExitOk && status != kExitNo;
}

std::string WhatStands(size_t before) {
    if (before == 0) return "no command before it was done";
    return fmt::format("{} before it {} done, and what {} did stands", Counted(before, "command"),
                       before == 1 ? "was" : "were", before == 1 ? "it" : "they");
}

// The status of the first line that failed, or of one that answered no.
int RunAll(const Cli& cli, const std::vector<Line>& lines, const BatchArguments& args) {
    int all = kExitOk;
    uint64_t failed = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        const int status = WasInterrupted() ? kExitInterrupted : RunLine(cli, lines[i], args.file);
        if (status == kExitInterrupted || (IsFailure(status) && !args.goOn)) {
            TellError(fmt::format("{}: stopped; {}", Where(args.file, lines[i]), WhatStands(i)));
            return status;
        }
        if (IsFailure(status)) ++failed;
        if (!IsFailure(all) && status != kExitOk) all = status;
    }
    if (failed != 0)
        TellError(fmt::format("{}: {} of {} failed", args.file, failed,
                              Counted(lines.size(), "command")));
    return all;
}

void Batch(Cli& cli, const BatchArguments& args) {
    if (args.stop && args.goOn) throw UsageError("expected either --stop or --continue");
    if (cli.Quiet()) throw UsageError("expected --quiet in the lines that need it");
    const std::vector<Line> lines = LinesOf(cli.AsGrammar(), args.file);
    const InterruptGuard guard;
    RehearseAll(cli, lines, args.file);
    Session session;
    int status = kExitOk;
    DoAndClose(session, [&] { status = RunAll(cli, lines, args); });
    if (status == kExitInterrupted) throw Interrupted();
    cli.SetExitStatus(status);
}

}  // namespace

void AddBatchCommand(Cli& cli) {
    const auto args = std::make_shared<BatchArguments>();
    cli.Add("batch", "Do several commands, one a line, under one lock")
        .No("a line answered no, and none failed")
        .Example("fbr batch changes.txt")
        .Example("fbr batch changes.txt --continue")
        .Example("echo 'set settings.fbr Software Name sz \"a b\"' | fbr batch -")
        .Text("FILE", args->file, Need::kRequired,
              "the commands without \"fbr\", with quotes as in a shell; - for standard input")
        .Flag("--stop", args->stop, "end at the first line that fails (the default)")
        .Flag("--continue", args->goOn, "do the lines behind one that fails")
        .Does([&cli, args] { Batch(cli, *args); });
}

}  // namespace fbr
