// SPDX-License-Identifier: MIT
#pragma once

#include <windows.h>

#include "platform/Errors.h"

namespace platform {

// Leaves a number as the thread's last error.
inline Error Leave(Error error) {
    ::SetLastError(error);
    return error;
}

// The number of a system call that has just failed; one that left none is kErrorGenFailure.
inline Error Failure() {
    const Error error = ::GetLastError();
    return error != kErrorSuccess ? error : kErrorGenFailure;
}

// That of one that has just ended, left as the thread's last error too.
inline Error Outcome(bool done) {
    return done ? Leave(kErrorSuccess) : Failure();
}

}  // namespace platform
