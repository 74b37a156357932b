// SPDX-License-Identifier: MIT
#include <windows.h>

#include "platform/Errors.h"

namespace platform {

Error LastError() noexcept {
    return ::GetLastError();
}

void SetLastError(Error error) noexcept {
    ::SetLastError(error);
}

}  // namespace platform
