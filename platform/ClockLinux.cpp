// SPDX-License-Identifier: MIT
#include <unistd.h>
#include <ctime>

#include "platform/Clock.h"
#include "platform/Hooks.h"

namespace platform {
namespace {

timespec Monotonic() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

// The clock is read far more often than the day changes.
struct Day {
    time_t number;  // since 1970-01-01
    UtcTime start;
};

Day DayOf(time_t now, time_t secondsADay) {
    tm parts{};
    gmtime_r(&now, &parts);
    UtcTime start{};
    start.year = static_cast<uint16_t>(parts.tm_year + 1900);
    start.month = static_cast<uint16_t>(parts.tm_mon + 1);
    start.day = static_cast<uint16_t>(parts.tm_mday);
    return {now / secondsADay, start};
}

}  // namespace

UtcTime UtcNow() noexcept {
    if (hooks::clockSource != nullptr) return hooks::clockSource();
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    constexpr time_t kDay = 86400;
    thread_local Day day{-1, {}};
    if (now.tv_sec / kDay != day.number || now.tv_sec < 0) day = DayOf(now.tv_sec, kDay);
    const uint32_t second = static_cast<uint32_t>(now.tv_sec % kDay + kDay) % kDay;
    UtcTime time = day.start;
    time.hour = static_cast<uint16_t>(second / 3600);
    time.minute = static_cast<uint16_t>(second / 60 % 60);
    time.second = static_cast<uint16_t>(second % 60);
    time.millisecond = static_cast<uint16_t>(now.tv_nsec / 1000000);
    return time;
}

uint32_t TickCount() noexcept {
    const timespec now = Monotonic();
    return static_cast<uint32_t>(static_cast<uint64_t>(now.tv_sec) * 1000 +
                                 static_cast<uint64_t>(now.tv_nsec) / 1000000);
}

int64_t PerformanceCounter() noexcept {
    const timespec now = Monotonic();
    return static_cast<int64_t>(now.tv_sec) * PerformanceFrequency() + now.tv_nsec;
}

int64_t PerformanceFrequency() noexcept {
    return 1000000000;
}

uint32_t ThreadId() noexcept {
    return static_cast<uint32_t>(gettid());
}

uint32_t ProcessId() noexcept {
    return static_cast<uint32_t>(getpid());
}

}  // namespace platform
