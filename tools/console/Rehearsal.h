// SPDX-License-Identifier: MIT
// Commands that are looked at before they are done.
#pragma once

namespace fbr {

// Ends a command that is looked at: its words are right.
struct Rehearsed {};

// While one stands a command only looks at its words, and ends where it would read, open or write
// something. One at a time.
class Rehearsal {
  public:
    Rehearsal();
    ~Rehearsal();
    Rehearsal(const Rehearsal&) = delete;
    Rehearsal& operator=(const Rehearsal&) = delete;

    static bool Stands();
};

// Throws Rehearsed while a rehearsal stands: for all that goes beyond the words of a command.
void EndOfRehearsal();

}  // namespace fbr
