// SPDX-License-Identifier: MIT
// Two file operations that try harder than the system's own. Paths stand as they are given; both
// return 0 or a Win32 error number, log what failed, and may be called from any thread.
#pragma once

#include <cstdint>

#include "platform/Text.h"

namespace ZrSharedHelpers {

// Deletes a file, or a folder that is empty. Where access is denied the read-only and hidden
// attributes are taken off and the delete is tried once more. A missing file is the error of its
// attributes (2 or 3).
uint32_t DeleteFileWithRetry(const platform::WString& path);

// Makes a folder with all its missing parents. 0 at once when anything exists at `path`. 87 for an
// empty path, 161 for a missing one with no separator in it.
uint32_t EnsurePathExists(const platform::WString& path);

}  // namespace ZrSharedHelpers
