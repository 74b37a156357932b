// SPDX-License-Identifier: MIT
// How this system writes the paths of its files.
#pragma once

#include "platform/Text.h"

namespace platform {

#ifdef _WIN32
inline constexpr WChar kHostSeparator = '\\';
#else
inline constexpr WChar kHostSeparator = '/';
#endif

// In front of a path that Windows is to take as it stands, however long it is.
inline constexpr WStringView kLongPathPrefix = WTEXT("\\\\?\\");

// Units of the longest of its paths, and a zero.
inline constexpr uint32_t kLongestPath = 32768;

}  // namespace platform
