// SPDX-License-Identifier: MIT
// Remembers whom the calling thread impersonates and puts it back.
#pragma once

#include "Shared/security/AccessToken.h"

namespace w32utils {

// A scope object that must live and die on one thread. At its end the thread has the token that
// it had at its beginning; where it had none, any impersonation added in between ends. When the
// thread's state could not be read at the beginning, Error tells so and nothing is changed at the
// end. When a token cannot be put back, the thread is nobody from then on: it must not do as the
// process what it takes itself to do as a user.
class ImpersonationStateSaver {
  public:
    ImpersonationStateSaver();
    ~ImpersonationStateSaver();
    ImpersonationStateSaver(const ImpersonationStateSaver&) = delete;
    ImpersonationStateSaver& operator=(const ImpersonationStateSaver&) = delete;

    // The thread's token as it was, null when there was none; owned by this object.
    HANDLE SavedToken() const { return token_.Get(); }
    // 0, or the Win32 error of reading the thread's state.
    DWORD Error() const { return error_; }

  private:
    DWORD error_ = 0;
    CAccessToken token_;
};

}  // namespace w32utils
