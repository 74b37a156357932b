// Lets a thread act as the process itself for a while.
#pragma once

#include "W32Utils/ImpersonationStateSaver.h"

// A scope object: while it lives the calling thread has no token of its own; at its end the
// thread has the token that it had before. Must live and die on one thread.
class UnImpersonator {
  public:
    UnImpersonator();

    // The token that the thread had, null when there was none; owned by this object.
    HANDLE SavedToken() const { return saver_.SavedToken(); }

  private:
    w32utils::ImpersonationStateSaver saver_;
};
