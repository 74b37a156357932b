// Heap, clock and last error.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "platform/Clock.h"
#include "platform/Errors.h"
#include "platform/Heap.h"

namespace {

TEST(Heap, GivesMemoryThatCanBeReleased) {
    void* nothing = platform::HeapAllocate(0);
    EXPECT_NE(nothing, nullptr);
    platform::HeapRelease(nothing);
    platform::HeapRelease(nullptr);
    // Dirty the heap first, so that zeroes are no accident.
    void* dirty = platform::HeapAllocate(4096);
    std::fill_n(static_cast<char*>(dirty), 4096, 'x');
    platform::HeapRelease(dirty);
    auto* zeroed = static_cast<char*>(platform::HeapAllocateZeroed(4096));
    EXPECT_TRUE(std::all_of(zeroed, zeroed + 4096, [](char c) { return c == 0; }));
    platform::HeapRelease(zeroed);
}

TEST(Clock, TellsTheTimeInUtc) {
    using std::chrono::system_clock;
    const platform::UtcTime now = platform::UtcNow();
    const auto date = std::chrono::year(now.year) / now.month / now.day;
    const auto told = std::chrono::sys_days(date) + std::chrono::hours(now.hour) +
                      std::chrono::minutes(now.minute) + std::chrono::seconds(now.second);
    const auto away = system_clock::now() - told;
    EXPECT_LT(away, std::chrono::seconds(5));
    EXPECT_GT(away, std::chrono::seconds(-5));
}

TEST(Clock, CountsInTheUnitsItClaims) {
    const int64_t counter = platform::PerformanceCounter();
    const uint32_t ticks = platform::TickCount();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const double seconds = static_cast<double>(platform::PerformanceCounter() - counter) /
                           static_cast<double>(platform::PerformanceFrequency());
    const uint32_t milliseconds = platform::TickCount() - ticks;
    EXPECT_GE(seconds, 0.08);
    EXPECT_LT(seconds, 20.0);
    EXPECT_GE(milliseconds, 80u);
    EXPECT_LT(milliseconds, 20000u);
}

TEST(Errors, KeepsALastErrorForEachThread) {
    std::atomic<bool> begin{false}, set{false};
    std::thread other([&] {
        while (!begin) {
        }
        platform::SetLastError(38);
        set = true;
    });
    platform::SetLastError(5);
    begin = true;
    while (!set) {
    }
    EXPECT_EQ(platform::LastError(), 5u);
    other.join();
}

}  // namespace
