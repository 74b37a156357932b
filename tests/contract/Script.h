// SPDX-License-Identifier: MIT
// Calls on a store, one a line, and what they must answer, in files beside this one. A file has
// sections: each is played on a new store of every kind that has the traits behind its title.
//
//     == A title ?trait !trait ~trait
//     ?trait KEY = VERB WORDS -> ANSWER
//
// A line is played where the store has the trait (?) or has it not (!); handles are not counted
// where it has that one (~). KEY names the handle that the call gives; without it the handle is
// closed. "@KEY" is such a handle, "@5" a number, and where a key is asked for, a path opens one
// for the line. ANSWER is empty or what the call gives, with the status in front, without
// FSSTATUS_, where it is another than success; " or " parts what is allowed. The lines behind "each
// WORDS" that begin with blanks are played with each of the words in the place of %%.
//
// A word stands in quotes where it has blanks or is empty; <00E4> is a unit, and <text*9> the text
// nine times. Data is 'text, *9 for nine bytes of a pattern, or hexadecimal. What stands behind
// "run" is a line for the shell of a system whose programs read the store.
#pragma once

#include <string>
#include <vector>

#include "tests/contract/Backend.h"

namespace contract {

struct Section {
    std::string name;  // as GoogleTest takes it
    std::vector<std::string> traits;
    std::vector<std::pair<int, std::string>> lines;  // with their numbers

    bool Suits(const Backend& backend) const;
    // Whether handles stay behind.
    bool Keeps(const Backend& backend) const;
};

// Of a file.
std::vector<Section> SectionsOf(const std::filesystem::path& file);

void Play(const Section& section, const Backend& backend);

}  // namespace contract
