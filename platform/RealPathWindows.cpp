// SPDX-License-Identifier: MIT
#include "platform/RealPath.h"

#include <windows.h>

#include <initializer_list>
#include <new>

#include "platform/HostPath.h"

namespace platform {
namespace {

// Without `.` and `..` and, unless it is verbatim, without what the system takes off a name or
// takes for a device, which comes out as `\\.\NAME`. Empty on failure.
WString FullName(const WString& path) {
    WString full(kLongestPath, 0);
    const DWORD length = GetFullPathNameW(path.c_str(), kLongestPath, full.data(), nullptr);
    full.resize(length < kLongestPath ? length : 0);
    return full;
}

// Where the names of files begin: behind the drive, or the sign of a verbatim path and its volume.
// 0 for what names no file: a device, a stream of a file, a sign of another kind.
size_t BeginOfNames(const WString& full) {
    const bool verbatim = full.starts_with(kLongPathPrefix);
    if (full.starts_with(L"\\\\.\\")) return 0;
    const size_t begin = verbatim ? kLongPathPrefix.size() : 0;
    const bool drive = full.size() > begin + 1 && full[begin + 1] == L':';
    // A colon stands behind the drive's letter and nowhere else.
    if (full.find(L':', begin + (drive ? 2 : 0)) != WString::npos) return 0;
    if (drive || !verbatim) return begin + 2;
    for (const WStringView volume : {L"UNC\\", L"Volume{", L"GLOBALROOT\\Device\\"}) {
        if (CompareFolded(WStringView(full).substr(begin, volume.size()), volume) == 0)
            return begin + volume.size();
    }
    return 0;
}

// The system's own name of an open file. The first way gives the drive that the volume has now,
// whatever drive or link led to it. A volume without one has a name of another kind, and a server
// may know no name but the one given.
WString NameOf(HANDLE file) {
    for (const DWORD way : {DWORD{VOLUME_NAME_DOS}, DWORD{VOLUME_NAME_GUID}, DWORD{VOLUME_NAME_NT},
                            DWORD{FILE_NAME_OPENED | VOLUME_NAME_DOS}}) {
        WString name(kLongestPath, 0);
        const DWORD length = GetFinalPathNameByHandleW(file, name.data(), kLongestPath, way);
        if (length == 0 || length >= kLongestPath) continue;
        name.resize(length);
        return way == VOLUME_NAME_NT ? L"\\\\?\\GLOBALROOT" + name : name;
    }
    return {};
}

// The same name as everybody writes it, where that means the same: a file whose name ends in a dot
// or is that of a device can only be named verbatim.
WString Familiar(const WString& name) {
    constexpr WStringView kShare = L"\\\\?\\UNC\\";
    WString plain = name;
    if (name.starts_with(kShare)) {
        plain = L"\\\\" + name.substr(kShare.size());
    } else if (name.size() > 5 && name.starts_with(kLongPathPrefix) && name[5] == L':') {
        plain = name.substr(kLongPathPrefix.size());
    }
    return FullName(plain) == plain ? plain : name;
}

// Follows all of `path`, which must exist. kErrorFileNotFound when nothing is there.
Error Follow(const WString& path, WString* name) {
    const HANDLE file =
        CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const bool denied = GetLastError() == ERROR_ACCESS_DENIED;
        if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES && !denied)
            return kErrorFileNotFound;
        // Something stands there that cannot be opened, or a link that cannot be followed.
        return denied ? kErrorAccessDenied : kErrorInvalidName;
    }
    if (GetFileType(file) == FILE_TYPE_DISK) *name = NameOf(file);
    CloseHandle(file);
    if (name->empty()) return kErrorInvalidName;
    *name = Familiar(*name);
    return kErrorSuccess;
}

}  // namespace

Error RealPath(const WString& path, WString* real) noexcept {
    try {
        const WString full = FullName(path);
        const size_t begin = full.empty() ? 0 : BeginOfNames(full);
        if (begin == 0) return kErrorInvalidName;
        WString found;
        Error error = Follow(full, &found);
        size_t end = full.size();
        while (error == kErrorFileNotFound) {
            end = full.rfind(L'\\', end - 1);
            if (end == WString::npos || end < begin) return kErrorInvalidName;
            error = Follow(full.substr(0, end + 1), &found);  // a folder, for the backslash
        }
        if (error != kErrorSuccess) return error;
        if (end != full.size() && found.back() == L'\\') found.pop_back();
        *real = found + full.substr(end);
        return kErrorSuccess;
    } catch (const std::bad_alloc&) {
        return kErrorOutOfMemory;
    }
}

}  // namespace platform
