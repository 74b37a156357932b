// SPDX-License-Identifier: MIT
// A lock that several threads share or one has alone.
#pragma once

#include <memory>

namespace platform {

// For std::shared_lock, std::unique_lock and std::lock_guard. Who waits to have it alone holds up
// those who come later to share it, so that they cannot keep it waiting; not recursive. Unlike the
// locks of the run-time library on Windows it holds no handle.
class SharedLock {
  public:
    SharedLock();
    ~SharedLock();
    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;

    void lock() noexcept;
    void unlock() noexcept;
    void lock_shared() noexcept;
    void unlock_shared() noexcept;

  private:
    struct System;
    std::unique_ptr<System> system_;
};

}  // namespace platform
