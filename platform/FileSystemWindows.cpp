#include "platform/FileSystem.h"

#include <windows.h>

namespace platform {
namespace {

Error Outcome(bool done) {
    if (done) {
        ::SetLastError(kErrorSuccess);
        return kErrorSuccess;
    }
    const Error error = ::GetLastError();
    return error != kErrorSuccess ? error : kErrorGenFailure;
}

}  // namespace

Error GetAttributes(const WChar* path, uint32_t* attributes) noexcept {
    const DWORD found = GetFileAttributesW(path);
    if (found != INVALID_FILE_ATTRIBUTES) *attributes = found;
    return Outcome(found != INVALID_FILE_ATTRIBUTES);
}

Error SetAttributes(const WChar* path, uint32_t attributes) noexcept {
    return Outcome(SetFileAttributesW(path, attributes) != 0);
}

Error MakeFolder(const WChar* path) noexcept {
    return Outcome(CreateDirectoryW(path, nullptr) != 0);
}

Error RemoveFolder(const WChar* path) noexcept {
    return Outcome(RemoveDirectoryW(path) != 0);
}

Error RenameNew(const WChar* from, const WChar* to) noexcept {
    return Outcome(MoveFileExW(from, to, MOVEFILE_WRITE_THROUGH) != 0);
}

Error RenameOver(const WChar* from, const WChar* to) noexcept {
    constexpr DWORD kInTheWay = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN;
    constexpr DWORD kKept = kInTheWay | FILE_ATTRIBUTE_SYSTEM;
    constexpr DWORD kFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
    const DWORD found = GetFileAttributesW(to);
    const DWORD attributes = found != INVALID_FILE_ATTRIBUTES ? found & kKept : 0;
    if ((attributes & kInTheWay) != 0 && !SetFileAttributesW(to, found & ~kInTheWay)) {
        return Outcome(false);
    }
    // Whoever just reads the old file is in the way, for no longer than that takes.
    constexpr DWORD kPause = 10;
    constexpr int kMostTries = 200;
    Error error = kErrorSuccess;
    for (int i = 0; i < kMostTries; ++i) {
        error = Outcome(MoveFileExW(from, to, kFlags) != 0);
        if (error != kErrorAccessDenied && error != kErrorSharingViolation) break;
        Sleep(kPause);
    }
    if (attributes != 0) SetFileAttributesW(to, attributes);
    ::SetLastError(error);
    return error;
}

}  // namespace platform
