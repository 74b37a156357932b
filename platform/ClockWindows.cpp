// SPDX-License-Identifier: MIT
#include <windows.h>

#include "platform/Clock.h"
#include "platform/Hooks.h"

namespace platform {

UtcTime UtcNow() noexcept {
    if (hooks::clockSource != nullptr) return hooks::clockSource();
    SYSTEMTIME now{};
    GetSystemTime(&now);
    return {now.wYear,   now.wMonth,  now.wDay,         now.wHour,
            now.wMinute, now.wSecond, now.wMilliseconds};
}

uint32_t TickCount() noexcept {
    return GetTickCount();
}

int64_t PerformanceCounter() noexcept {
    LARGE_INTEGER count{};
    QueryPerformanceCounter(&count);
    return count.QuadPart;
}

int64_t PerformanceFrequency() noexcept {
    LARGE_INTEGER frequency{};
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

uint32_t ThreadId() noexcept {
    return GetCurrentThreadId();
}

uint32_t ProcessId() noexcept {
    return GetCurrentProcessId();
}

}  // namespace platform
