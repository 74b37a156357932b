// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/LockWait.h"

#include <atomic>

namespace {

std::atomic<uint32_t> g_milliseconds = kDefaultLockWait;
std::atomic<LockWaitBegins> g_begins = nullptr;

}  // namespace

void SetLockWait(uint32_t milliseconds, LockWaitBegins begins) {
    g_milliseconds = milliseconds;
    g_begins = begins;
}

uint32_t LockWaitMilliseconds() {
    return g_milliseconds;
}

LockWaitBegins LockWaitCallback() {
    return g_begins;
}
