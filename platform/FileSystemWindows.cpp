// SPDX-License-Identifier: MIT
#include "platform/FileSystem.h"

#include <windows.h>

#include "platform/OutcomeWindows.h"
#include "platform/RootFolder.h"

namespace platform {
namespace {

// Calls what changes the file or folder at `path`, where the thread may.
template <class Call>
Error Change(const WChar* path, Call call) {
    const HeldFolder folder(path);
    if (folder.Status() == kErrorSuccess) return Outcome(call() != 0);
    ::SetLastError(folder.Status());
    return folder.Status();
}

}  // namespace

Error GetAttributes(const WChar* path, uint32_t* attributes) noexcept {
    const DWORD found = GetFileAttributesW(path);
    if (found != INVALID_FILE_ATTRIBUTES) *attributes = found;
    return Outcome(found != INVALID_FILE_ATTRIBUTES);
}

Error SetAttributes(const WChar* path, uint32_t attributes) noexcept {
    return Change(path, [&] { return SetFileAttributesW(path, attributes); });
}

Error MakeFolder(const WChar* path) noexcept {
    return Change(path, [&] { return CreateDirectoryW(path, nullptr); });
}

Error RemoveFolder(const WChar* path) noexcept {
    return Change(path, [&] { return RemoveDirectoryW(path); });
}

Error RenameNew(const WChar* from, const WChar* to, bool durable) noexcept {
    const HeldFolder target(to);
    if (target.Status() != kErrorSuccess) {
        ::SetLastError(target.Status());
        return target.Status();
    }
    const DWORD flags = durable ? MOVEFILE_WRITE_THROUGH : 0;
    return Change(from, [&] { return MoveFileExW(from, to, flags); });
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
