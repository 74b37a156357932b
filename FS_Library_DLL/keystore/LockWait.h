// SPDX-License-Identifier: MIT
// How long a call of this process waits for the lock of a store, and who is told that it waits.
// Process-wide; the engine's lock asks here. A leaf: it needs nothing but the language.
#pragma once

#include <cstdint>

inline constexpr uint32_t kDefaultLockWait = 60000;  // milliseconds

// Called once at the start of each wait, by the thread that waits; it calls nothing of the library.
using LockWaitBegins = void (*)();

// 0: not at all. Set both before the threads start that lock.
void SetLockWait(uint32_t milliseconds, LockWaitBegins begins);

uint32_t LockWaitMilliseconds();
// Null when nobody wants to know.
LockWaitBegins LockWaitCallback();
