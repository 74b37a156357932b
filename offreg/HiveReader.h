// SPDX-License-Identifier: MIT
// From the bytes of a hive file to a tree.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "offreg/HiveTree.h"
#include "platform/Errors.h"

namespace offreg {

inline constexpr platform::Error kErrorBadDatabase = 1009;      // empty or above 4 GiB
inline constexpr platform::Error kErrorNotRegistryFile = 1017;  // not a hive

// What a damaged hive holds and could not be read.
struct LeftOut {
    uint64_t count = 0;
    // The first ones in UTF-8, such as "value 3 of key \\a\\b".
    std::vector<std::string> told;
};
inline constexpr size_t kMostTold = 20;

// Fills `hive`, which is new. Formats 1.1 to 1.6 are read; transaction logs beside the file are
// not. The bytes are not trusted: every cell belongs to one owner only, so neither time nor memory
// grow beyond what the file's own size explains. What cannot be read is left out, with all that
// hangs on it, and told in `leftOut` (which may be null); so is what no name would lead to: a key
// with a backslash in its name, and the later one of two keys or values of one name.
//
// Returns 0, kErrorBadDatabase, or kErrorNotRegistryFile when there is no base block or no root to
// begin with; `hive` is of no use then. Throws std::bad_alloc.
platform::Error ReadHive(const uint8_t* bytes, size_t size, Hive& hive, LeftOut* leftOut = nullptr);

}  // namespace offreg
