// SPDX-License-Identifier: MIT
// The lock of an operation: taken by every call, mostly free, and perhaps the caller's already.
#pragma once

#ifdef _WIN32
#include <mutex>
#else
#include <atomic>
#include <cstdint>
#include <thread>
#endif

#include "platform/ThreadAnnotations.h"

namespace platform {

#ifdef _WIN32
// There a thread's identity costs a handle that a library which is unloaded leaves behind.
using NestingLock = std::recursive_mutex;
#else
// What std::recursive_mutex does, in a third of its instructions where nobody waits.
class NestingLock {
  public:
    void lock() {
        const std::thread::id self = std::this_thread::get_id();
        if (owner_.load(std::memory_order_relaxed) == self) {  // which only the owner ever finds
            ++depth_;
            return;
        }
        uint32_t state = kFree;
        if (!state_.compare_exchange_strong(state, kHeld, std::memory_order_acquire,
                                            std::memory_order_relaxed))
            Wait();
        owner_.store(self, std::memory_order_relaxed);
        depth_ = 1;
    }
    void unlock() {
        if (--depth_ != 0) return;
        owner_.store(std::thread::id(), std::memory_order_relaxed);
        if (state_.exchange(kFree) == kAwaited) state_.notify_one();
    }

  private:
    enum State : uint32_t { kFree, kHeld, kAwaited };

    // Who has waited leaves it awaited, for there may be others.
    void Wait() {
        while (state_.exchange(kAwaited) != kFree) state_.wait(kAwaited, std::memory_order_relaxed);
    }

    std::atomic<uint32_t> state_{kFree};
    std::atomic<std::thread::id> owner_{};
    uint32_t depth_ = 0;  // of the owner's
};
#endif

// The analysis looks at one function at a time: that a lock nests shows across functions only.
using RecursiveMutex = BasicMutex<NestingLock>;

}  // namespace platform
