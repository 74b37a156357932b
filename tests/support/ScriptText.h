// SPDX-License-Identifier: MIT
// Cases as texts, in files beside the tests that play them: sections, and the words of their lines.
//
//     == A title ?trait !trait ~trait
//     a line
//
// What the traits mean and what a line says is the player's. The lines behind "each WORDS" that
// begin with blanks are played with each of the words in the place of %%.
//
// A word stands in quotes where it has blanks or is empty; <00E4> is a unit, and <text*9> the text
// nine times. Data is 'text, *9 for nine bytes of a pattern, or hexadecimal.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/Store.h"

namespace support {

struct Section {
    std::string name;  // as GoogleTest takes it
    std::vector<std::string> traits;
    std::vector<std::pair<int, std::string>> lines;  // with their numbers
};

// Of a file below tests/.
std::vector<Section> SectionsIn(const std::string& file);
std::vector<Section> SectionsOf(const std::filesystem::path& file);

using Words = std::vector<WString>;
Words WordsOf(const std::string& line);

// Data as a word, and the word for data.
Bytes DataOf(const std::string& word);
WString Shown(const Bytes& data);

}  // namespace support
