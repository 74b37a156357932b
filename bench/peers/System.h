// SPDX-License-Identifier: MIT
// What the benchmark asks of the system, one file for each.
#pragma once

#include <cstdint>
#include <functional>
#include <map>

namespace bench {

// Nanoseconds that this thread has run; the time that passes where a store's work is not done by
// its caller's thread.
double ThreadNs();
bool HasThreadClock();

// Keeps large blocks of memory from being held back and cleared by hand when they are asked for
// again, which would make a second opening of some stores three times as dear as a process's first.
void UseFreshBlocks();

// Tell a counter from outside where measured work begins and ends: CountCalls below, and Callgrind,
// which writes the instructions between them to a file of its own, with `what` and `operations`.
void MarkBegin();
void MarkEnd(uint32_t number, uint64_t operations, const char* what);

// System calls an operation by sort, but for those that only get memory, wait for a thread or ask
// for the time.
struct Calls {
    double reads = 0, writes = 0, locks = 0, others = 0;
};

// Does `work` in a child and counts the system calls of its first thread, from each MarkBegin to
// its MarkEnd, by the mark's number. Throws std::runtime_error when the child fails.
std::map<uint32_t, Calls> CountCalls(const std::function<void()>& work);

}  // namespace bench
