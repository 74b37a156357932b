#include "platform/LockPatience.h"

#include <algorithm>

#include "platform/ThreadSlot.h"

namespace platform {
namespace {

ThreadSlot g_patience;  // one more than the milliseconds, or 0 for no limit

}  // namespace

LockPatience::LockPatience(uint32_t milliseconds) noexcept : before_(g_patience.Get()) {
    g_patience.Set(uintptr_t{milliseconds} + 1);
}

LockPatience::~LockPatience() {
    g_patience.Set(before_);
}

uint32_t LockWaitOf(uint32_t usual) noexcept {
    const uintptr_t limit = g_patience.Get();
    return limit == 0 ? usual : static_cast<uint32_t>(std::min<uintptr_t>(usual, limit - 1));
}

}  // namespace platform
