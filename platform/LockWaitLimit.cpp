// SPDX-License-Identifier: MIT
#include "platform/LockWaitLimit.h"

#include <algorithm>
#include <atomic>

#include "platform/ThreadSlot.h"

namespace platform {
namespace {

constexpr uint32_t kStep = 50;  // milliseconds

ThreadSlot g_limit;  // one more than the milliseconds, or 0 for no limit
std::atomic<bool (*)()> g_isWanted = nullptr;

}  // namespace

LockWaitLimit::LockWaitLimit(uint32_t milliseconds) noexcept : before_(g_limit.Get()) {
    g_limit.Set(uintptr_t{milliseconds} + 1);
}

LockWaitLimit::~LockWaitLimit() {
    g_limit.Set(before_);
}

uint32_t LockWaitOf(uint32_t usual) noexcept {
    const uintptr_t limit = g_limit.Get();
    return limit == 0 ? usual : static_cast<uint32_t>(std::min<uintptr_t>(usual, limit - 1));
}

void SetLockWaitEnd(bool (*isWanted)()) noexcept {
    g_isWanted = isWanted;
}

bool IsLockWaitToEnd() noexcept {
    const auto isWanted = g_isWanted.load();
    return isWanted != nullptr && isWanted();
}

uint32_t LockWaitStep(uint32_t milliseconds) noexcept {
    return g_isWanted.load() != nullptr ? std::min(milliseconds, kStep) : milliseconds;
}

}  // namespace platform
