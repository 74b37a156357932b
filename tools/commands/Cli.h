// SPDX-License-Identifier: MIT
// The command line: the commands hang themselves into it, one family a file.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tools/commands/Help.h"
#include "tools/store/Store.h"

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace fbr {

// Exit statuses of the tool.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitNo = 3;    // the answer is no: differences, findings, nothing found
inline constexpr int kExitBusy = 4;  // somebody else holds the store
inline constexpr int kExitInterrupted = 130;

// Words that do not make a command. The text says what was expected.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Cli;
struct Grammar;
enum class Need { kRequired, kOptional };

// One command and its arguments. A name without a dash in front is a positional argument; behind
// that of an option stands what its word is called, "--root DIR". Targets outlive the command; an
// argument that is not given leaves its target as it is.
class Command {
  public:
    Command(const Cli* cli, CLI::App* app, Notes* notes) : cli_(cli), app_(app), notes_(notes) {}

    Command& Text(const char* name, std::string& target, Need need, const char* description);
    Command& Text(const char* name, std::optional<std::string>& target, Need need,
                  const char* description);
    // STORE, and KEY, which may be left out.
    Command& StoreAndKey(std::string& store, std::string& key);
    Command& Texts(const char* name, std::vector<std::string>& target, const char* description);
    // Some words behind an option, from count.first to count.second; `words` names them in the
    // help.
    Command& Words(const char* name, std::vector<std::string>& target, const char* words,
                   std::pair<int, int> count, Need need, const char* description);
    Command& Choice(const char* name, std::string& target, std::vector<std::string> choices,
                    const char* description, Need need = Need::kOptional);
    Command& Number(const char* name, uint64_t& target, const char* description,
                    Need need = Need::kOptional);
    Command& Flag(const char* name, bool& target, const char* description);

    // A line of the help. Every command has two.
    Command& Example(const char* line);
    // What exit status 3 means.
    Command& No(const char* meaning);
    // The command answers a question: it knows --json, and with --quiet its answer is the exit
    // status.
    Command& Tells();

    // What the command does: throws what goes wrong.
    void Does(std::function<void()> work);

  private:
    const Cli* cli_;
    CLI::App* app_;
    Notes* notes_;
};

inline constexpr const char* kInShell = "--in-shell";

class Cli {
  public:
    Cli();
    ~Cli();
    Cli(const Cli&) = delete;
    Cli& operator=(const Cli&) = delete;

    Command Add(const char* name, const char* description);

    // The store of that path, with the method given on the command line, or of the kind that the
    // file shows.
    StoreName StoreAt(const std::string& path) const;
    // The same with a method of its own.
    static StoreName StoreAt(const std::string& path, const std::string& method);
    // The same for a store that is made where it is missing: then its name tells the kind.
    StoreName StoreToMake(const std::string& path) const { return StoreToMake(path, method_); }
    static StoreName StoreToMake(const std::string& path, const std::string& method);
    // The file of a container on this machine, in UTF-8, for commands that work on nothing else.
    // Throws UsageError for a store of another method.
    std::string ContainerAt(const std::string& path) const;
    // True when the answer is for a program: one object a line, see Json.h.
    bool Json() const { return json_; }
    bool Quiet() const { return quiet_; }
    // True when what is told may have colours.
    bool Colored() const;
    // All commands that were added, with their words.
    Grammar AsGrammar() const;
    // "status" of the last object that a command tells with --json.
    int Status() const { return exitStatus_; }
    // As it was given; empty if not.
    const std::string& Method() const { return method_; }
    // Words that stand for those given to every command, but for the method: for lines that are
    // command lines of their own.
    std::vector<std::string> SharedWords() const;
    // The words are those of a line, "changes.txt:2", which stands in front of what goes wrong.
    void StandAt(const std::string& line) { where_ = line + ": "; }
    // True when the library was told to trace.
    bool Traces() const { return !traceFolder_.empty(); }

    // The exit status of a command that worked, for those that have more than one.
    // A failure stays one.
    void SetExitStatus(int status) {
        if (exitStatus_ != kExitFailed) exitStatus_ = status;
    }
    // The command looks for damage: what the library tells of it is the answer, and no failure.
    void FindsDamage() { findsDamage_ = true; }
    // Tells of something that the command leaves out, on standard error; it ends with a failure.
    void TellLoss(const std::string& text);

    // Runs the command that `words` make; failures are reported on standard error. The exit status.
    // A shell puts kInShell in front of them.
    int Run(std::vector<std::string> words);
    // The same for one of several commands, which does not end the program.
    int RunOne(std::vector<std::string> words);
    // False, and told, where the words are wrong. Nothing is done.
    bool Rehearse(std::vector<std::string> words);

  private:
    void HearWarnings();
    void Parse(std::vector<std::string> words);
    int EndOfParse(const CLI::ParseError& error) const;
    void StartTrace();
    void LimitWait() const;
    void TellProgram(const std::string& error, int status) const;
    int Fail(const std::string& text, int status) const;

    std::unique_ptr<CLI::App> app_;
    std::deque<Notes> notes_;  // of the commands
    std::string method_;       // empty when the file tells
    std::string traceFolder_;
    std::string traceLevel_ = "4";
    std::optional<std::string> wait_;
    std::string color_ = "auto";
    bool json_ = false, quiet_ = false;
    std::string where_;
    bool inShell_ = false;  // the words are those of a line there, which has no store
    int exitStatus_ = kExitOk;
    bool findsDamage_ = false;
};

// An argument as UTF-16; throws UsageError when it is not UTF-8.
platform::WString Wide(const std::string& text);
// An argument that is a key: names joined by backslashes, the root for none.
platform::WString KeyArgument(const std::string& text);

// All of those below.
void AddCommands(Cli& cli);
// The families. `cli` outlives the callbacks.
void AddListCommand(Cli& cli);        // ls
void AddBrowseCommands(Cli& cli);     // tree, get
void AddFindCommand(Cli& cli);        // find
void AddContentCommands(Cli& cli);    // stat, hash
void AddEditCommands(Cli& cli);       // create, set, rm
void AddMoveCommands(Cli& cli);       // cp, mv
void AddExportCommand(Cli& cli);      // export
void AddImportCommand(Cli& cli);      // import
void AddCompareCommands(Cli& cli);    // copy, diff
void AddIntegrityCommands(Cli& cli);  // check, repair, compact
void AddSalvageCommand(Cli& cli);     // salvage
void AddInspectCommands(Cli& cli);    // info, map, dump
void AddServeCommand(Cli& cli);       // serve
void AddWatchCommand(Cli& cli);       // watch
void AddViewCommand(Cli& cli);        // view
void AddShellCommand(Cli& cli);       // shell
void AddGenerateCommand(Cli& cli);    // generate
void AddBatchCommand(Cli& cli);       // batch

}  // namespace fbr
