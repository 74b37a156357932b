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

// While one stands no interrupt ends the program, however many come: what is done then is short,
// and leaves something behind where it is broken off. StopIfInterrupted tells of them afterwards.
class UnbrokenGuard {
  public:
    UnbrokenGuard();
    ~UnbrokenGuard();
    UnbrokenGuard(const UnbrokenGuard&) = delete;
    UnbrokenGuard& operator=(const UnbrokenGuard&) = delete;

  private:
    const InterruptGuard guard_;
};

bool WasInterrupted();

// Nobody reads standard output any more: work ends as after an interrupt, in order, and
// EndInterrupted ends the program by the signal that tells so.
void OutputIsBroken();  // fit for a signal handler
bool WasOutputBroken();

// Throws Interrupted after an interrupt.
void StopIfInterrupted();

// Ends the program with status 130. On Linux that is how a shell calls an end by the signal, and
// the signal is what ends it: a script that runs the program then ends, too.
[[noreturn]] void EndInterrupted();

}  // namespace fbr
