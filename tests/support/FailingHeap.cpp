// SPDX-License-Identifier: MIT
#include "tests/support/FailingHeap.h"

#include <atomic>

#include "platform/Heap.h"

namespace support {
namespace {

std::atomic<uint64_t> calls, hits;
uint64_t failingCall;
bool keepsFailing;

bool Gate(size_t) {
    const uint64_t number = ++calls;
    const bool fails =
        failingCall != 0 && (number == failingCall || (keepsFailing && number > failingCall));
    if (fails) ++hits;
    return !fails;
}

}  // namespace

FailingHeap::FailingHeap(uint64_t failing, bool keepFailing) {
    calls = 0;
    hits = 0;
    failingCall = failing;
    keepsFailing = keepFailing;
    platform::SetAllocationGate(Gate);
}

FailingHeap::~FailingHeap() {
    platform::SetAllocationGate(nullptr);
}

uint64_t FailingHeap::Calls() const {
    return calls;
}

uint64_t FailingHeap::Hits() const {
    return hits;
}

}  // namespace support
