// From the bytes of a hive file to a tree.
#pragma once

#include <cstddef>
#include <cstdint>

#include "offreg/HiveTree.h"
#include "platform/Errors.h"

namespace offreg {

inline constexpr platform::Error kErrorBadDatabase = 1009;      // empty or above 4 GiB
inline constexpr platform::Error kErrorNotRegistryFile = 1017;  // not a hive, or a damaged one

// Fills `hive`, which is new. Formats 1.1 to 1.6 are read; transaction logs beside the file are
// not. The bytes are not trusted: every cell belongs to one owner only, so neither time nor memory
// grow beyond what the file's own size explains. Returns 0, kErrorBadDatabase or
// kErrorNotRegistryFile; `hive` is of no use then. Throws std::bad_alloc.
platform::Error ReadHive(const uint8_t* bytes, size_t size, Hive& hive);

}  // namespace offreg
