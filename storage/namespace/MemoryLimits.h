// SPDX-License-Identifier: MIT
// What memory keeps of an open container's files and directories as far as nobody refers to them:
// so many files, and directories with their records up to so many bytes. What the last operations
// used stays beyond that, so that a directory larger than all of it is not read anew for each.
#pragma once

#include <cstdint>

namespace storage {

inline constexpr uint32_t kIdleObjectLimit = 128;

// Set before the first container is opened.
struct MemoryLimits {
    uint64_t directoryBytes = 64u << 20;
    uint64_t recentOperations = 64;
};
inline MemoryLimits g_memoryLimits;

}  // namespace storage
