// SPDX-License-Identifier: MIT
// What to say of words that do not make a command.
#pragma once

#include <string>

namespace CLI {
class App;
class Error;
}  // namespace CLI

namespace fbr {

// The parser takes a word in square brackets for a list. A mark in front hides it, and comes off
// again where the word is used.
std::string Shielded(std::string word);
std::string Unshielded(std::string word);

// "expected STORE for ls", for what the parser found when it came to the end of the words.
std::string WhatIsWrong(CLI::App& app, const CLI::Error& error);

}  // namespace fbr
