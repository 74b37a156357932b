// SPDX-License-Identifier: MIT
#include <cctype>

#include "include/ZrFsVersion.h"
#include "tools/commands/Grammar.h"

namespace fbr {
namespace {

// A line of text: no dash becomes a hyphen, nothing an escape or a request.
std::string Plain(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\') {
            out += "\\e";
        } else if (c == '-' || c == '\'' || c == '~' || c == '^' || c == '`') {
            out += c == '-'    ? "\\-"
                   : c == '\'' ? "\\(aq"
                   : c == '~'  ? "\\(ti"
                   : c == '^'  ? "\\(ha"
                               : "\\(ga";
        } else {
            out += c;
        }
    }
    return out.starts_with('.') ? "\\&" + out : out;
}

std::string Strong(const std::string& text) {
    return "\\fB" + Plain(text) + "\\fR";
}

void WriteWord(const GrammarWord& word, std::ostream& out) {
    std::string head;
    for (const std::string& name : word.names) head += (head.empty() ? "" : ", ") + Strong(name);
    if (!word.argument.empty()) head += " \\fI" + Plain(word.argument) + "\\fR";
    out << ".TP\n" << head << '\n' << Plain(word.description) << '\n';
}

void WriteLines(const std::string& lines, std::ostream& out) {
    out << ".PP\n.nf\n";
    for (size_t at = 0, end; at < lines.size(); at = end + 1) {
        end = std::min(lines.find('\n', at), lines.size());
        out << Plain(lines.substr(at, end - at)) << '\n';
    }
    out << ".fi\n";
}

void WriteCommand(const GrammarCommand& command, std::ostream& out) {
    out << ".SS " << Plain(command.name) << "\n.B fbr\n"
        << Plain(Synopsis(command)) << "\n.PP\n"
        << Plain(command.description) << ".\n";
    for (const GrammarWord& word : command.arguments) WriteWord(word, out);
    for (const GrammarWord& word : command.options) WriteWord(word, out);
    if (!command.notes->no.empty())
        out << ".PP\nExit status 3: " << Plain(command.notes->no) << ".\n";
    std::string examples;
    for (const std::string& example : command.notes->examples) examples += "    " + example + "\n";
    WriteLines(examples, out);
}

constexpr const char* kWhatStandsWhere =
    ".PP\n"
    "\\fISTORE\\fR is a file: a container, also inside a disk image, a hive, a .reg file, a file "
    "of\n"
    "JSON lines, or a folder with such text. What it is shows from its first bytes.\n"
    ".PP\n"
    "\\fIKEY\\fR is a list of names with backslashes between them, one in front is optional, and\n"
    "\\e alone is the root. The unnamed value of a key is \"\", and shows as (Default).\n"
    ".PP\n"
    "A word that begins with a dash and is no option goes behind \\fB\\-\\-\\fR.\n";

}  // namespace

void WriteManual(const Grammar& grammar, std::ostream& out) {
    std::string what = grammar.description.substr(0, grammar.description.find_last_not_of('.') + 1);
    what[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(what[0])));
    out << ".\\\" Made by fbr generate man.\n.TH FBR 1 \"\" \"fbr " ZRFS_VERSION
           "\" \"User Commands\"\n.SH NAME\nfbr \\- "
        << Plain(what)
        << "\n.SH SYNOPSIS\n.B fbr\n[\\fIOPTION\\fR...] \\fICOMMAND\\fR [\\fIARGUMENT\\fR...]\n"
           ".SH DESCRIPTION\n"
        << Plain(grammar.description) << '\n'
        << kWhatStandsWhere << ".SH OPTIONS\nWith every command:\n";
    for (const GrammarWord& word : grammar.options) WriteWord(word, out);
    out << ".SH COMMANDS\n";
    for (const GrammarCommand& command : grammar.commands) WriteCommand(command, out);
    out << ".SH EXIT STATUS\n";
    WriteLines(ExitStatusLines("differences, findings, nothing found"), out);
    out << ".SH ENVIRONMENT\n.TP\n.B NO_COLOR\nIf set, no colours unless \\fB\\-\\-color\\fR asks "
           "for them.\n";
}

}  // namespace fbr
