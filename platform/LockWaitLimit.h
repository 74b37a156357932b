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

// Asked many times a second by every thread that waits for a store's lock: true ends the wait as
// the end of its time does. Null for nobody. Process-wide, set before threads wait.
void SetLockWaitEnd(bool (*isWanted)()) noexcept;
bool IsLockWaitToEnd() noexcept;
// How much of a wait may pass until that is to be asked again.
uint32_t LockWaitStep(uint32_t milliseconds) noexcept;

}  // namespace platform
