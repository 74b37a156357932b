// SPDX-License-Identifier: MIT
// Lets a thread act as the process itself for a while.
#pragma once

#include "W32Utils/ImpersonationStateSaver.h"

// A scope object: while it lives the calling thread has no token of its own; at its end the
// thread has the token that it had before. Where Error is not 0 the thread may be the user yet, and
// what was to be done as the process must not be done. Must live and die on one thread.
class UnImpersonator {
  public:
    UnImpersonator();

    // The token that the thread had, null when there was none; owned by this object.
    HANDLE SavedToken() const { return saver_.SavedToken(); }
    // 0, or the Win32 error of leaving the impersonation.
    DWORD Error() const { return error_; }

  private:
    w32utils::ImpersonationStateSaver saver_;
    DWORD error_ = 0;
};
