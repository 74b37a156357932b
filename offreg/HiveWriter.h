// SPDX-License-Identifier: MIT
// From a tree to the bytes of a hive file.
#pragma once

#include "offreg/HiveTree.h"
#include "platform/Errors.h"

namespace offreg {

inline constexpr platform::Error kErrorFileTooLarge = 223;

// Builds the whole file in `file`: format 1.3, which every reader knows, or 1.5 when a datum is
// above 16344 bytes and has to be cut up. The base block bears `time` (100 ns since 1601) and the
// end of `path`. Returns 0 or kErrorFileTooLarge (2 GiB, or more subkeys or segments than a list
// can name). Throws std::bad_alloc.
platform::Error WriteHive(const Hive& hive, uint64_t time, WStringView path, Bytes* file);

}  // namespace offreg
