// SPDX-License-Identifier: MIT
// Lets a thread act as a user for a while.
#pragma once

#include <windows.h>

// A scope object: a thread that has no token impersonates with the given one until the scope's
// end; a thread that already impersonates stays as it is. A failure to impersonate is kept in
// Error and the work goes on as the process. Must live and die on one thread.
class Impersonator {
  public:
    explicit Impersonator(HANDLE token);
    ~Impersonator();
    Impersonator(const Impersonator&) = delete;
    Impersonator& operator=(const Impersonator&) = delete;

    // True when the thread impersonates through this object.
    bool Impersonates() const { return state_ == State::Impersonating; }
    // 0, or the Win32 error of the attempt.
    DWORD Error() const { return error_; }

  private:
    enum class State { Failed = 0, Already = 1, Impersonating = 2 };
    State state_ = State::Failed;
    DWORD error_ = 0;
};
