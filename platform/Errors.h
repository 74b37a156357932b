// SPDX-License-Identifier: MIT
// The Win32 error numbers that cross the seam, the same on every system.
#pragma once

#include <cstdint>

namespace platform {

using Error = uint32_t;

inline constexpr Error kErrorSuccess = 0;
inline constexpr Error kErrorFileNotFound = 2;
inline constexpr Error kErrorPathNotFound = 3;
inline constexpr Error kErrorTooManyOpenFiles = 4;
inline constexpr Error kErrorAccessDenied = 5;
inline constexpr Error kErrorInvalidHandle = 6;
inline constexpr Error kErrorOutOfMemory = 14;
inline constexpr Error kErrorWriteProtect = 19;
inline constexpr Error kErrorGenFailure = 31;
inline constexpr Error kErrorSharingViolation = 32;
inline constexpr Error kErrorHandleEof = 38;
inline constexpr Error kErrorNotSupported = 50;
inline constexpr Error kErrorFileExists = 80;
inline constexpr Error kErrorInvalidParameter = 87;
inline constexpr Error kErrorDiskFull = 112;
inline constexpr Error kErrorInvalidName = 123;
inline constexpr Error kErrorNegativeSeek = 131;
inline constexpr Error kErrorFolderNotEmpty = 145;
inline constexpr Error kErrorAlreadyExists = 183;
inline constexpr Error kErrorFilenameTooLong = 206;
inline constexpr Error kErrorDirectory = 267;
inline constexpr Error kErrorNotOwner = 288;

// The calling thread's last error, as the operations of the seam leave it.
Error LastError() noexcept;
void SetLastError(Error error) noexcept;

}  // namespace platform
