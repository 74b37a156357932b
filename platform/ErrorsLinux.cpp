// SPDX-License-Identifier: MIT
#include <cerrno>

#include "platform/ErrnoLinux.h"
#include "platform/Errors.h"

namespace platform {
namespace {

thread_local constinit Error lastError = kErrorSuccess;

}  // namespace

Error LastError() noexcept {
    return lastError;
}

void SetLastError(Error error) noexcept {
    lastError = error;
}

Error FromErrno(int number) noexcept {
    switch (number) {
        case 0:
            return kErrorSuccess;
        case ENOENT:
            return kErrorFileNotFound;
        case ENOTDIR:
            return kErrorPathNotFound;
        case EMFILE:
        case ENFILE:
            return kErrorTooManyOpenFiles;
        // A folder opened as a file is denied, as it is on Windows.
        case EISDIR:
        case EACCES:
        case ETXTBSY:
        case EPERM:
            return kErrorAccessDenied;
        case EBADF:
            return kErrorInvalidHandle;
        case ENOMEM:
            return kErrorOutOfMemory;
        case EROFS:
            return kErrorWriteProtect;
        case EBUSY:
            return kErrorSharingViolation;
        case EEXIST:
        case EADDRINUSE:
            return kErrorFileExists;
        case EINVAL:
            return kErrorInvalidParameter;
        case EDQUOT:
        case EFBIG:
        case ENOSPC:
            return kErrorDiskFull;
        case EILSEQ:
        case ELOOP:
            return kErrorInvalidName;
        case ENAMETOOLONG:
            return kErrorFilenameTooLong;
        default:
            return kErrorGenFailure;
    }
}

}  // namespace platform
