// SPDX-License-Identifier: MIT
#include <editline/readline.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

#include "tools/console/Console.h"
#include "tools/console/LineEditor.h"

namespace fbr {
namespace {

Complete g_complete;  // the library asks through plain functions

char* NextMatch(const char* text, int state) {
    static std::vector<std::string> matches;
    static size_t next;
    if (state == 0) {
        const std::string line(rl_line_buffer, static_cast<size_t>(rl_point));
        matches = g_complete(line);
        next = 0;
    }
    return next < matches.size() ? strdup((text + matches[next++]).c_str()) : nullptr;
}

char** Matches(const char* text, int start, int end) {
    rl_attempted_completion_over = 1;  // no names of files
    return rl_completion_matches(text, NextMatch);
}

}  // namespace

LineEditor::LineEditor(Complete complete) {
    g_complete = std::move(complete);
    rl_readline_name = const_cast<char*>("fbr");
    rl_attempted_completion_function = Matches;
    rl_completer_word_break_characters = const_cast<char*>(" \t");
    rl_completion_append_character = 0;
    using_history();
}

LineEditor::~LineEditor() {
    clear_history();
    g_complete = {};
}

std::optional<std::string> LineEditor::Read(const std::string& prompt) {
    if (!InputIsTerminal()) {
        std::string line;
        if (!std::getline(std::cin, line)) return {};
        return line;
    }
    char* read = readline(prompt.c_str());
    if (read == nullptr) return {};
    std::string line = read;
    std::free(read);
    if (!line.empty()) add_history(line.c_str());
    return line;
}

}  // namespace fbr
