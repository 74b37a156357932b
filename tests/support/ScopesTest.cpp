// The scopes that stand in for the heap and the clock.
#include <gtest/gtest.h>

#include "platform/Heap.h"
#include "tests/support/FailingHeap.h"
#include "tests/support/FixedClock.h"

namespace {

bool Allocates() {
    void* memory = platform::HeapAllocate(16);
    platform::HeapRelease(memory);
    return memory != nullptr;
}

TEST(FailingHeap, FailsTheNamedAllocationAndGoesWithItsScope) {
    {
        const support::FailingHeap heap(2);
        EXPECT_TRUE(Allocates());
        EXPECT_EQ(platform::HeapAllocateZeroed(16), nullptr);
        EXPECT_TRUE(Allocates());
        EXPECT_EQ(heap.Calls(), 3u);
        EXPECT_EQ(heap.Hits(), 1u);
    }
    {
        const support::FailingHeap heap(1, true);
        EXPECT_FALSE(Allocates());
        EXPECT_FALSE(Allocates());
    }
    EXPECT_TRUE(Allocates());
}

TEST(FixedClock, StandsStillUntilItsScopeEnds) {
    {
        support::FixedClock clock({1999, 12, 31, 23, 59, 58, 999});
        EXPECT_EQ(platform::UtcNow().year, 1999);
        EXPECT_EQ(platform::UtcNow().millisecond, 999);
        clock.Set({2000, 1, 1, 0, 0, 0, 0});
        EXPECT_EQ(platform::UtcNow().year, 2000);
    }
    EXPECT_GE(platform::UtcNow().year, 2024);
}

}  // namespace
