// SPDX-License-Identifier: MIT
// Moments of the registry (100 ns since 1601, UTC) as calendar time.
#pragma once

#include <cstdint>

#include "include/ZrFsTypes.h"

// False, with `time` untouched, for a moment past the year 30827, which the calendar type does not
// hold.
bool FileTimeToCalendar(uint64_t ticks, FBR_SYSTEMTIME* time);
