// SPDX-License-Identifier: MIT
// A word of each thread's own.
#pragma once

#include <cstdint>

namespace platform {

// 0 in a thread that has set none. Unlike what the language has for it, it costs a library that is
// loaded and unloaded no handle on Windows.
class ThreadSlot {
  public:
    ThreadSlot() noexcept;
    ~ThreadSlot();
    ThreadSlot(const ThreadSlot&) = delete;
    ThreadSlot& operator=(const ThreadSlot&) = delete;

    uintptr_t Get() const noexcept;
    void Set(uintptr_t value) noexcept;

  private:
    uint32_t key_;
};

}  // namespace platform
