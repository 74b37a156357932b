// SPDX-License-Identifier: MIT
// A process heap that fails the allocation a test names.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/Heap.h"

namespace support {

// While it lives, allocations from platform/Heap.h are counted from 1, and allocation `failing`
// fails (0: none). One at a time.
class FailingHeap {
  public:
    explicit FailingHeap(uint64_t failing = 0, bool keepFailing = false) {
        calls_ = hits_ = 0;
        failing_ = failing;
        keepFailing_ = keepFailing;
        platform::SetAllocationGate([](size_t) {
            const uint64_t call = ++calls_;
            const bool fails =
                failing_ != 0 && (call == failing_ || (keepFailing_ && call > failing_));
            hits_ += fails;
            return !fails;
        });
    }
    ~FailingHeap() { platform::SetAllocationGate(nullptr); }
    FailingHeap(const FailingHeap&) = delete;
    FailingHeap& operator=(const FailingHeap&) = delete;

    uint64_t Calls() const { return calls_; }
    // How many allocations have failed on purpose.
    uint64_t Hits() const { return hits_; }

  private:
    static inline std::atomic<uint64_t> calls_, hits_;
    static inline uint64_t failing_;
    static inline bool keepFailing_;
};

}  // namespace support
