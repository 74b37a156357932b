// SPDX-License-Identifier: MIT
// Reads a container file from its bytes alone and judges whether all of it agrees: the second
// opinion on what the engine writes. Shares nothing with the engine.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/support/ContainerBytes.h"

namespace support::container {

// An object as it was found.
struct Found {
    std::u16string name;
    uint32_t fileId = 0;
    uint32_t headerPage = 0;
    uint32_t attributes = 0;
    uint64_t size = 0;
    Bytes body;                   // the stream, `size` bytes
    std::vector<Found> children;  // in the order of their entries

    const Found* Child(const std::u16string& childName) const;  // null if none; folds A to Z
};

struct Reading {
    // What does not agree, one sentence each; empty for a sound container.
    std::vector<std::string> problems;
    bool foreign = false;
    uint32_t pageSize = 0, pageCount = 0, usedPages = 0;
    Found root;

    bool Sound() const { return problems.empty(); }
    std::string Report() const;  // the problems as lines
    // "" is the root, "\a\b" b in a; null if there is none.
    const Found* At(const std::u16string& path) const;
};

// Never fails: what can not be read is a problem. The container begins with the file.
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
Key RegistryOf(const Found& directory);
std::u16string DecodeName(const std::u16string& stored);

}  // namespace support::container
