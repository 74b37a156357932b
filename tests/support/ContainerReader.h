// SPDX-License-Identifier: MIT
// Reads the tree in a container file from its bytes alone: the second opinion on what the engine
// writes, with which it shares nothing. That all about the tree agrees is for the check to say,
// which is held against containers laid out by hand.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/support/ContainerBuilder.h"

namespace support::container {

// Text in few words.
inline platform::WString ToWide(const std::u16string& text) {
    return platform::WString(text.begin(), text.end());
}
inline std::u16string Numbered(const std::u16string& stem, size_t number) {
    const std::string digits = std::to_string(number);
    return stem + std::u16string(digits.begin(), digits.end());
}
// A to Z only.
std::u16string Folded(std::u16string text);

struct Reading {
    std::string wrong;  // the first thing that could not be read; empty when all was
    bool foreign = false;
    uint32_t pageSize = 0, pageCount = 0, usedPages = 0;
    Item root;

    // "" is the root, "\a\b" b in a; null if there is none. Folds A to Z.
    const Item* At(const std::u16string& path) const;
};

// Never fails: what cannot be read is left out. The container begins with the file.
Reading ReadContainer(const Bytes& file);

// The registry in a container, as the key store lays it out: names decoded, "#FILE" undone.
struct Value {
    uint32_t type = 0;
    Bytes data;
    bool operator==(const Value& other) const = default;
};
struct Key {
    std::map<std::u16string, Key> keys;
    std::map<std::u16string, Value> values;
    bool operator==(const Key& other) const = default;
};
Key RegistryOf(const Item& directory);

}  // namespace support::container
