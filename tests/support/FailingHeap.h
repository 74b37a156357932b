// SPDX-License-Identifier: MIT
// A process heap that fails the allocation a test names.
#pragma once

#include <cstdint>

namespace support {

// While it lives, allocations from platform/Heap.h are counted from 1, and allocation `failing`
// fails (0: none). One at a time.
class FailingHeap {
  public:
    explicit FailingHeap(uint64_t failing = 0, bool keepFailing = false);
    ~FailingHeap();
    FailingHeap(const FailingHeap&) = delete;
    FailingHeap& operator=(const FailingHeap&) = delete;

    uint64_t Calls() const;
    // How many allocations have failed on purpose.
    uint64_t Hits() const;
};

}  // namespace support
