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

}  // namespace

UtcTime UtcNow() noexcept {
    if (hooks::clockSource != nullptr) return hooks::clockSource();
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    gmtime_r(&now.tv_sec, &parts);
    return {static_cast<uint16_t>(parts.tm_year + 1900), static_cast<uint16_t>(parts.tm_mon + 1),
            static_cast<uint16_t>(parts.tm_mday),        static_cast<uint16_t>(parts.tm_hour),
            static_cast<uint16_t>(parts.tm_min),         static_cast<uint16_t>(parts.tm_sec),
            static_cast<uint16_t>(now.tv_nsec / 1000000)};
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
