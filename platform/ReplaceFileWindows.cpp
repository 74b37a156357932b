// SPDX-License-Identifier: MIT
#include "platform/ReplaceFile.h"

#include <windows.h>

#include <new>
#include <vector>

#include "platform/OutcomeWindows.h"

namespace platform {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr SECURITY_INFORMATION kMode = DACL_SECURITY_INFORMATION;
constexpr SECURITY_INFORMATION kOwner = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION;

uint64_t Joined(DWORD high, DWORD low) {
    return uint64_t{high} << 32 | low;
}

Error ReadSecurity(const WChar* path, std::vector<uint8_t>* descriptor) {
    DWORD bytes = 0;
    if (GetFileSecurityW(path, kOwner | kMode, nullptr, 0, &bytes)) return kErrorSuccess;
    if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) return Outcome(false);
    descriptor->resize(bytes);
    return Outcome(GetFileSecurityW(path, kOwner | kMode, descriptor->data(), bytes, &bytes) != 0);
}

}  // namespace

Error LookAtFile(const WChar* path, FileState* state) noexcept {
    *state = {};
    const HANDLE file = CreateFileW(path, FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        return Leave(error == ERROR_FILE_NOT_FOUND ? kErrorSuccess : error);
    }
    BY_HANDLE_FILE_INFORMATION found;
    const Error error = Outcome(GetFileInformationByHandle(file, &found) != 0);
    CloseHandle(file);
    if (error != kErrorSuccess) return Leave(error);
    state->exists = true;
    state->volume = found.dwVolumeSerialNumber;
    state->file[0] = Joined(found.nFileIndexHigh, found.nFileIndexLow);
    state->size = Joined(found.nFileSizeHigh, found.nFileSizeLow);
    state->written =
        Joined(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime);
    return Leave(kErrorSuccess);
}

// Who may enter is what the folder around it says.
Error MakePrivateFolder(const WChar* path) noexcept {
    return Outcome(CreateDirectoryW(path, nullptr) != 0);
}

// Access hangs on the list, which must be the same. To give a file to another owner takes a
// privilege that even administrators have to ask for: without it the file is the user's.
Error CopyOwnerAndMode(const WChar* from, const WChar* fresh) noexcept {
    try {
        std::vector<uint8_t> descriptor;
        const Error error = ReadSecurity(from, &descriptor);
        if (error != kErrorSuccess) return error;
        if (descriptor.empty()) return Leave(kErrorSuccess);
        if (!SetFileSecurityW(fresh, kMode, descriptor.data())) return Outcome(false);
        SetFileSecurityW(fresh, kOwner, descriptor.data());
        return Leave(kErrorSuccess);
    } catch (const std::bad_alloc&) {
        return Leave(kErrorOutOfMemory);
    }
}

ReplacementLock::~ReplacementLock() {
    if (file_ != -1) CloseHandle(reinterpret_cast<HANDLE>(file_));
}

// A file that is open cannot be renamed over, so that the lock is not on the file itself but a file
// beside it, which is gone when its one handle is.
Error ReplacementLock::Take(const WChar* path, uint32_t milliseconds) noexcept {
    constexpr DWORD kFlags = FILE_ATTRIBUTE_HIDDEN | FILE_FLAG_DELETE_ON_CLOSE;
    const DWORD start = GetTickCount();
    try {
        const WString name = WString(path) + L".lock~";
        for (;;) {
            const HANDLE file = CreateFileW(name.c_str(), GENERIC_WRITE | DELETE, 0, nullptr,
                                            OPEN_ALWAYS, kFlags, nullptr);
            if (file != INVALID_HANDLE_VALUE) {
                file_ = reinterpret_cast<intptr_t>(file);
                return Leave(kErrorSuccess);
            }
            // The second one for a file that is just going.
            const Error error = Outcome(false);
            const bool isHeld = error == kErrorSharingViolation || error == kErrorAccessDenied;
            if (!isHeld) return error;
            if (GetTickCount() - start >= milliseconds) return Leave(error);
            Sleep(5);
        }
    } catch (const std::bad_alloc&) {
        return Leave(kErrorOutOfMemory);
    }
}

}  // namespace platform
