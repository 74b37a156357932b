// SPDX-License-Identifier: MIT
// The hive file on disk as a whole.
#pragma once

#include "offreg/HiveTree.h"
#include "platform/Errors.h"
#include "platform/Text.h"

namespace offreg {

// Reads a whole file of less than 4 GiB; a larger one is kErrorBadDatabase. 0 or a Win32 error.
// Throws std::bad_alloc.
platform::Error ReadWholeFile(const WChar* path, Bytes* content);

// Makes a file that is complete or not there: the content goes to a temporary file in the same
// folder, which is flushed and then renamed. An existing file is kErrorAlreadyExists and stays as
// it is. On failure nothing is left behind. 0 or a Win32 error.
platform::Error SaveNewFile(const WChar* path, const Bytes& content);

// Now, in 100 ns since 1601.
uint64_t FileTimeNow();

}  // namespace offreg
