// SPDX-License-Identifier: MIT
#pragma once

#include <windows.h>

#include "platform/Errors.h"

namespace platform {

// The number of a system call that has just ended, left as the thread's last error too; a
// failure that left no number is kErrorGenFailure.
inline Error Outcome(bool done) {
    if (done) {
        ::SetLastError(kErrorSuccess);
        return kErrorSuccess;
    }
    const Error error = ::GetLastError();
    return error != kErrorSuccess ? error : kErrorGenFailure;
}

}  // namespace platform
