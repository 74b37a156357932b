// SPDX-License-Identifier: MIT
#include "platform/LockWaitLimit.h"

#include <algorithm>

#include "platform/ThreadSlot.h"

namespace platform {
namespace {

ThreadSlot g_limit;  // one more than the milliseconds, or 0 for no limit

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

}  // namespace platform
