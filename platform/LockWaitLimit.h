// SPDX-License-Identifier: MIT
// How long a thread waits for the lock of a store.
#pragma once

#include <cstdint>

namespace platform {

// For as long as one lives, a wait of the thread for a store's lock ends after so many
// milliseconds where it would end later. They nest; the latest counts.
class LockWaitLimit {
  public:
    explicit LockWaitLimit(uint32_t milliseconds) noexcept;
    ~LockWaitLimit();
    LockWaitLimit(const LockWaitLimit&) = delete;
    LockWaitLimit& operator=(const LockWaitLimit&) = delete;

  private:
    uintptr_t before_;
};

// `usual`, or the limit of the thread when that is less.
uint32_t LockWaitOf(uint32_t usual) noexcept;

}  // namespace platform
