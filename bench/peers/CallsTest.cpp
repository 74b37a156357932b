// SPDX-License-Identifier: MIT
// No operation may come to make more system calls than it is known to need. Where one makes fewer,
// lower its row: the test prints the rows as they would be now.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "bench/peers/Work.h"
#include "tests/support/FixedClock.h"
#include "tests/support/TempDir.h"

namespace bench {
namespace {

// System calls an operation, on 100 keys with 20 values each. A key is deleted with its values.
constexpr uint32_t kKeys = 100;

struct Known {
    Phase phase;
    Calls calls;  // reads, writes, locks, others
};

constexpr Known kLockHeld[] = {
    {Phase::Make, {0.03, 2.61, 0.00, 0.00}},      {Phase::Set, {0.01, 2.42, 0.00, 0.00}},
    {Phase::Overwrite, {0.00, 2.09, 0.00, 0.00}}, {Phase::Get, {0.00, 0.00, 0.00, 0.00}},
    {Phase::Hot, {0.00, 0.00, 0.00, 0.00}},       {Phase::Path, {0.00, 0.00, 0.00, 0.00}},
    {Phase::Enumerate, {0.00, 0.00, 0.00, 0.00}}, {Phase::Delete, {0.00, 3.52, 0.00, 0.00}},
    {Phase::Reopen, {10.80, 0.00, 0.00, 11.00}},
};

constexpr Known kLockForEachChange[] = {
    {Phase::Make, {1.01, 3.96, 3.00, 1.13}},      {Phase::Set, {1.01, 3.49, 3.00, 1.03}},
    {Phase::Overwrite, {1.00, 2.30, 3.00, 1.00}}, {Phase::Get, {1.00, 0.00, 0.00, 0.00}},
    {Phase::Hot, {1.00, 0.00, 0.00, 0.00}},       {Phase::Path, {2.00, 0.00, 0.00, 0.00}},
    {Phase::Enumerate, {1.05, 0.00, 0.00, 0.00}}, {Phase::Delete, {1.00, 5.56, 3.00, 1.00}},
    {Phase::Reopen, {10.60, 0.00, 0.00, 11.00}},
};

// What a row leaves out by being rounded, and calls that hang on where a store's pages came to lie.
constexpr double kSpare = 0.02;

template <size_t kRows>
void Compare(const Maker& maker, const Known (&known)[kRows]) {
    const support::TempDir folder;
    // A key's time is written when it is another one, which on a slow machine is more often.
    const support::FixedClock clock({2026, 11, 21, 10, 11, 31, 0});
    const auto counted = CountPhases(maker, MakeContent(kKeys), folder.Path() / "store");
    constexpr const char* kNames[] = {"Make", "Set",       "Overwrite", "Get",    "Hot",
                                      "Path", "Enumerate", "List",      "Delete", "Reopen"};
    fmt::print("{}\n", maker.name);
    for (const auto& [phase, now] : counted)
        fmt::print("    {{Phase::{}, {{{:.2f}, {:.2f}, {:.2f}, {:.2f}}}}},\n",
                   kNames[static_cast<int>(phase)], now.reads, now.writes, now.locks, now.others);
    ASSERT_EQ(counted.size(), kRows);
    for (const auto& [phase, most] : known) {
        const Calls& now = counted.at(phase);
        EXPECT_LE(now.reads, most.reads * (1 + kSpare) + kSpare) << Name(phase);
        EXPECT_LE(now.writes, most.writes * (1 + kSpare) + kSpare) << Name(phase);
        EXPECT_LE(now.locks, most.locks * (1 + kSpare) + kSpare) << Name(phase);
        EXPECT_LE(now.others, most.others * (1 + kSpare) + kSpare) << Name(phase);
    }
}

TEST(SystemCalls, OfAnOperationUnderALockThatIsHeld) {
    Compare(OurMakers()[0], kLockHeld);
}

TEST(SystemCalls, OfAnOperationWithALockForEachChange) {
    Compare(OurMakers()[1], kLockForEachChange);
}

}  // namespace
}  // namespace bench
