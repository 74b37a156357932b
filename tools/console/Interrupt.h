// SPDX-License-Identifier: MIT
// Ctrl-C in the midst of work that is ended in order.
#pragma once

#include <stdexcept>
#include <string>

namespace fbr {

// The person, or the system, asked the program to end. The text, if there is one, tells how far the
// work came.
class Interrupted : public std::runtime_error {
  public:
    explicit Interrupted(const std::string& text = "") : std::runtime_error(text) {}
};

// While one stands an interrupt does not end the program: StopIfInterrupted does, by an exception.
// A second interrupt ends it all the same. Of those that nest the outermost counts.
class InterruptGuard {
  public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;
};

bool WasInterrupted();

// Throws Interrupted after an interrupt.
void StopIfInterrupted();

// Ends the program with status 130. On Linux that is how a shell calls an end by the signal, and
// the signal is what ends it: a script that runs the program then ends, too.
[[noreturn]] void EndInterrupted();

}  // namespace fbr
