#include "platform/LockPatience.h"

#include <algorithm>

namespace platform {
namespace {

constexpr uint32_t kWithoutLimit = 0xFFFFFFFF;

thread_local uint32_t t_patience = kWithoutLimit;

}  // namespace

LockPatience::LockPatience(uint32_t milliseconds) noexcept : before_(t_patience) {
    t_patience = milliseconds;
}

LockPatience::~LockPatience() {
    t_patience = before_;
}

uint32_t LockWaitOf(uint32_t usual) noexcept {
    return std::min(usual, t_patience);
}

}  // namespace platform
