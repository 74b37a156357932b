// SPDX-License-Identifier: MIT
// Time: the wall clock in UTC, a tick count and a precise counter, and who is running.
#pragma once

#include <cstdint>

namespace platform {

struct UtcTime {
    uint16_t year, month, day, hour, minute, second, millisecond;
};

UtcTime UtcNow() noexcept;
// Milliseconds since some point in the past; wraps.
uint32_t TickCount() noexcept;
int64_t PerformanceCounter() noexcept;
// Counts of PerformanceCounter a second.
int64_t PerformanceFrequency() noexcept;
uint32_t ThreadId() noexcept;
uint32_t ProcessId() noexcept;

// For tests: stands in for UtcNow. Null removes it.
using ClockSource = UtcTime (*)();
void SetClock(ClockSource source) noexcept;

}  // namespace platform
