// The command line: the commands hang themselves into it, one family a file.
#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/store/Store.h"

namespace fbr {

// Exit statuses of the tool.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;

// Words that do not make a command. The text says what was expected.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Cli {
  public:
    Cli();

    // Adds a command. Its callback does the work and throws what goes wrong; it may set the exit
    // status of a command that worked.
    CLI::App* Command(const std::string& name, const std::string& description);
    // Positional and option arguments. Every text of a command line goes through these.
    static CLI::Option* AddText(CLI::App* command, const std::string& name, std::string& target,
                                const std::string& description);
    static CLI::Option* AddOptionalText(CLI::App* command, const std::string& name,
                                        std::optional<std::string>& target,
                                        const std::string& description);
    static CLI::Option* AddTexts(CLI::App* command, const std::string& name,
                                 std::vector<std::string>& target, const std::string& description);

    // The store of that path, with the method given on the command line.
    StoreName StoreAt(const std::string& path) const;

    void SetExitStatus(int status) { exitStatus_ = status; }

    // Runs the command that `words` make; failures are reported on standard error. The exit status.
    int Run(std::vector<std::string> words);

  private:
    CLI::App app_;
    std::string method_ = "container";
    int exitStatus_ = kExitOk;
};

// A method by number or by name; throws UsageError.
FBR_METHOD ParseMethod(const std::string& text);

// An argument as UTF-16; throws UsageError when it is not UTF-8.
platform::WString Wide(const std::string& text);
// An argument that is a key: names joined by backslashes, the root for none.
platform::WString KeyArgument(const std::string& text);

// The families. `cli` outlives the callbacks.
void AddBrowseCommands(Cli& cli);    // ls, tree, get
void AddEditCommands(Cli& cli);      // create, set, rm, mv
void AddTransferCommands(Cli& cli);  // export, import

}  // namespace fbr
