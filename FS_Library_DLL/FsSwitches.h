// SPDX-License-Identifier: MIT
// The switches of the process, set with FBR_Logging and FBR_FileChecking before the first store is
// opened. They are read without a lock.
#pragma once

#include <cstdint>

#include "platform/Text.h"

inline constexpr size_t kLogDirectoryUnits = 260;

struct FsSwitches {
    bool trace = false;
    bool traceOnCorruption = false;  // the first corruption that a check reports sets `trace`
    bool fileChecking = false;
    uint32_t traceLevel = 0;
    platform::WChar logDirectory[kLogDirectoryUnits] = {};
};

inline FsSwitches g_switches;
