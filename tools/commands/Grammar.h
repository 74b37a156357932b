// SPDX-License-Identifier: MIT
// The commands and their words as a table, for what is written from it: the manual page and the
// completions of shells.
#pragma once

#include <deque>
#include <ostream>
#include <string>
#include <vector>

#include "tools/commands/Help.h"

namespace fbr {

// An option, or an argument that stands by its place.
struct GrammarWord {
    std::vector<std::string> names;    // "-o", "--output"; of an argument its one name
    std::string argument;              // what follows an option, "FILE"; empty for a flag
    std::vector<std::string> choices;  // the words that may stand there, where those are few
    std::string description;
    bool required = false, many = false;

    // What stands there is a file, or a folder.
    bool TakesFile() const;
    bool TakesFolder() const;
};

struct GrammarCommand {
    std::string name, description;
    std::vector<GrammarWord> options, arguments;
    const Notes* notes = nullptr;
};

struct Grammar {
    std::string description;
    std::vector<GrammarWord> options;  // that all commands have
    std::vector<GrammarCommand> commands;
};

// `notes` are those of the commands, in their order.
Grammar GrammarOf(const CLI::App& all, const std::deque<Notes>& notes);

// In one text, with `between` between each two.
std::string Joined(const std::vector<std::string>& words, const char* between);

// "export STORE [KEY] [--format WORD]".
std::string Synopsis(const GrammarCommand& command);

// For man, in the language of its macros.
void WriteManual(const Grammar& grammar, std::ostream& out);

// Scripts that a shell reads once.
void WriteBash(const Grammar& grammar, std::ostream& out);
void WriteZsh(const Grammar& grammar, std::ostream& out);
void WriteFish(const Grammar& grammar, std::ostream& out);
void WritePowerShell(const Grammar& grammar, std::ostream& out);

}  // namespace fbr
