// SPDX-License-Identifier: MIT
// What the help of a command tells beside its words.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace fbr {

// Of one command.
struct Notes {
    std::vector<std::string> examples;
    std::string no;      // what exit status 3 means, for a command that has it
    bool tells = false;  // answers a question, for people or with --json for programs
};

// The end of a command's help: the options that all commands have, the examples, the exit statuses.
std::string HelpFooter(const CLI::App& all, const Notes& notes, bool examples);

// One line each: the exit statuses, with "3" only where `no` tells what it means.
std::string ExitStatusLines(const std::string& no);

// In a shell a command has the store from there, and so have places behind an option: takes these
// words off the command, for its help and what is wrong with its words.
void HideStore(CLI::App& command);

}  // namespace fbr
