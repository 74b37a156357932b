// SPDX-License-Identifier: MIT
// The mark of a file's one writer on Linux. For the files of platform/ only.
#pragma once

#include "platform/Errors.h"

namespace platform {

// Record locks of the open file description on bytes far behind the end of the file: they hold
// between processes, users and two openings in one process, whatever the file is called, and end
// with the description.
//
// Whoever may read a file can put shared locks on it, and no exclusive one can be had while they
// stand. So that this keeps no writer waiting there is a second way: a file beside, which only
// those can open who may write the file itself, carries the lock for the time, and a shared lock on
// a second byte tells those who come the first way that it does.
//
// A third byte belongs to the one who waits longest. Who comes while it is taken stands back, so
// that a writer who takes the mark again and again lets the others have it in between.
class FileMark {
  public:
    FileMark() = default;
    FileMark(const FileMark&) = delete;
    FileMark& operator=(const FileMark&) = delete;

    // `descriptor` is open for writing. *taken is false while somebody else has the mark.
    Error Take(int descriptor, bool* taken);
    void Drop(int descriptor);
    static bool IsTakenElsewhere(int descriptor);

  private:
    Error TakeFirstWay(int descriptor, bool* taken);
    Error TakeBeside(int descriptor, bool* taken);
    void DropBeside();
    void LeaveRow(int descriptor);

    int beside_ = -1;
    bool first_ = false;  // in the row of those who wait
};

}  // namespace platform
