// SPDX-License-Identifier: MIT
// From errno to the error numbers of the seam. For the files of platform/ only.
#pragma once

#include "platform/Errors.h"

namespace platform {

// The number for an errno value; kErrorGenFailure for one that has no counterpart.
Error FromErrno(int number) noexcept;

// Makes `error` the last error and returns it.
inline Error Leave(Error error) noexcept {
    SetLastError(error);
    return error;
}

}  // namespace platform
