// SPDX-License-Identifier: MIT
// How long a call of this process waits for the lock of a store, and who is told that it waits.
// Process-wide; the locks of all stores ask here.
#pragma once

#include <atomic>
#include <cstdint>

inline constexpr uint32_t kDefaultLockWait = 60000;  // milliseconds

// Called once at the start of each wait, by the thread that waits; it calls nothing of the library.
using LockWaitBegins = void (*)();

struct LockWait {
    std::atomic<uint32_t> milliseconds = kDefaultLockWait;
    std::atomic<LockWaitBegins> begins = nullptr;
};
inline LockWait g_lockWait;

// 0: not at all. Set both before the threads start that lock.
inline void SetLockWait(uint32_t milliseconds, LockWaitBegins begins) {
    g_lockWait.milliseconds = milliseconds;
    g_lockWait.begins = begins;
}

inline uint32_t LockWaitMilliseconds() {
    return g_lockWait.milliseconds;
}
// Null when nobody wants to know.
inline LockWaitBegins LockWaitCallback() {
    return g_lockWait.begins;
}
