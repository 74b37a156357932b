#include "platform/RealPath.h"

#include <windows.h>

#include <new>

namespace platform {
namespace {

constexpr DWORD kLongestPath = 32768;

// Without `.`, `..`, trailing dots and blanks; a device comes out as `\\.\NAME`. Empty on failure.
WString FullName(const WString& path) {
    WString full(kLongestPath, 0);
    const DWORD length = GetFullPathNameW(path.c_str(), kLongestPath, full.data(), nullptr);
    full.resize(length < kLongestPath ? length : 0);
    return full;
}

// The name of what exists at `path`, links followed; empty when nothing does.
WString FinalName(const WString& path) {
    const HANDLE file =
        CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE) return {};
    WString name(kLongestPath, 0);
    const DWORD length = GetFinalPathNameByHandleW(file, name.data(), kLongestPath, 0);
    CloseHandle(file);
    name.resize(length < kLongestPath ? length : 0);
    constexpr WStringView kPrefix = L"\\\\?\\";
    constexpr WStringView kShare = L"\\\\?\\UNC\\";
    if (name.starts_with(kShare)) return L"\\\\" + name.substr(kShare.size());
    return name.starts_with(kPrefix) ? name.substr(kPrefix.size()) : name;
}

bool IsDevice(const WString& full) {
    return full.starts_with(L"\\\\.\\") || full.starts_with(L"\\\\?\\");
}

// Something stands there that cannot be opened or followed.
bool IsThere(const WString& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

}  // namespace

Error RealPath(const WString& path, WString* real) noexcept {
    try {
        const WString full = FullName(path);
        // A colon stands after the drive's letter and nowhere else.
        if (full.empty() || full.find(L':', 2) != WString::npos || IsDevice(full))
            return kErrorInvalidName;
        for (size_t end = full.size(); end != WString::npos && end >= 2;
             end = full.rfind(L'\\', end - 1)) {
            const WString head = full.substr(0, end);
            WString found = FinalName(head.back() == L':' ? head + L'\\' : head);
            if (found.empty() && IsThere(head)) return kErrorInvalidName;
            if (found.empty()) continue;
            if (found.back() == L'\\') found.pop_back();
            *real = found + full.substr(end);
            return kErrorSuccess;
        }
        return kErrorInvalidName;
    } catch (const std::bad_alloc&) {
        return kErrorOutOfMemory;
    }
}

}  // namespace platform
