// SPDX-License-Identifier: MIT
// The words of a shell's line, which leave out the store and count keys from the current one.
#pragma once

#include <string>
#include <vector>

#include "tools/commands/Grammar.h"

namespace fbr {

// Where a line stands: in which store, at which key (without a backslash in front).
struct ShellPlace {
    std::string store, method, key;
};

// The words of a command line. What a word is shows from the table of commands: STORE is put in,
// KEY counted from the current key, and STORE KEY behind an option is a key of the same store.
std::vector<std::string> WithStore(const Grammar& grammar, const ShellPlace& place,
                                   const std::vector<std::string>& words);

// What the last of some words is, for who completes it.
struct ShellRole {
    enum Kind { kOther, kCommand, kKey, kValue } kind = kOther;
    std::string key;  // of the value, as it was typed
};
ShellRole RoleOfLast(const Grammar& grammar, const std::vector<std::string>& words);

}  // namespace fbr
