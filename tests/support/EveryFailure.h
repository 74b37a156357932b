// SPDX-License-Identifier: MIT
// One piece of work, done again and again, each time with the next of its calls failing.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/support/FailingHeap.h"
#include "tests/support/FaultFile.h"

namespace support {

enum class Failing { Allocation, AllocationsFromThenOn, FileCall, FileCallsFromThenOn };

// One failure. Files opened while it lives are its own to fail.
class Failure {
  public:
    Failure(Failing what, uint64_t number) : what_(what), number_(number) {}

    // Does the part of the work in which a call is to fail.
    template <class Work>
    auto During(Work work) {
        if (InHeap()) {
            const FailingHeap heap(number_, what_ == Failing::AllocationsFromThenOn);
            const auto status = work();
            hit_ = heap.Hits() != 0;
            return status;
        }
        files_.FailAny(number_, kError, what_ == Failing::FileCallsFromThenOn);
        const auto status = work();
        hit_ = files_.Hits() != 0;
        files_.FailAny(0, kError);
        return status;
    }
    bool Hit() const { return hit_; }
    bool InHeap() const {
        return what_ == Failing::Allocation || what_ == Failing::AllocationsFromThenOn;
    }

    static constexpr platform::Error kError = platform::kErrorDiskFull;

  private:
    Failing what_;
    uint64_t number_;
    FaultFile files_;
    bool hit_ = false;
};

// `attempt` gets the first call's failure, the second one's, and so on until none was left to fail.
template <class Attempt>
void WithEveryFailure(Failing what, Attempt attempt) {
    for (uint64_t number = 1;; ++number) {
        SCOPED_TRACE("failing call " + std::to_string(number) + " of kind " +
                     std::to_string(static_cast<int>(what)));
        Failure failure(what, number);
        attempt(failure);
        if (!failure.Hit() || testing::Test::HasFailure()) return;
    }
}

}  // namespace support
