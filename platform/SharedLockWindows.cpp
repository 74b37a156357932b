// SPDX-License-Identifier: MIT
#include "platform/SharedLock.h"

#include <windows.h>

namespace platform {

struct SharedLock::System {
    SRWLOCK lock = SRWLOCK_INIT;
};

SharedLock::SharedLock() : system_(std::make_unique<System>()) {}
SharedLock::~SharedLock() = default;

void SharedLock::lock() noexcept {
    AcquireSRWLockExclusive(&system_->lock);
}
void SharedLock::unlock() noexcept {
    ReleaseSRWLockExclusive(&system_->lock);
}
void SharedLock::lock_shared() noexcept {
    AcquireSRWLockShared(&system_->lock);
}
void SharedLock::unlock_shared() noexcept {
    ReleaseSRWLockShared(&system_->lock);
}

}  // namespace platform
