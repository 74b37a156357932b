// SPDX-License-Identifier: MIT
// A line of the shell taken apart.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fbr {

struct ShellLine {
    std::vector<std::string> words;
    std::string pipe;     // what stands behind the first "|" outside of quotes
    bool piped = false;   // there was one
    char quote = 0;       // of those that the line ends within
    bool atWord = false;  // it ends in a word and not behind one
    bool zero = false;    // there is one in it, at which words would end

    // What the line would have to be a command; nothing where it can be one.
    const char* Expected() const {
        if (zero) return "no zero in the line";
        return quote != 0 ? "a quote at the end of the line" : nullptr;
    }
};

// Blanks part words, but within quotes: all that stands between two single ones is part of the
// word, and between double ones, where two of these are one. A backslash is one everywhere: it
// parts the keys of a path. A line that begins with # has no words.
ShellLine ParseShellLine(std::string_view line);

// What to type behind a line that ends so, to get `rest` into its last word. No quote stays open.
std::string Typed(const ShellLine& line, const std::string& rest);

// A key as the shell takes it: from the root with a backslash in front, from `current` without,
// with "." for the same key and ".." for the one above. Paths are without a backslash in front.
std::string ResolveKey(const std::string& current, const std::string& typed);

}  // namespace fbr
