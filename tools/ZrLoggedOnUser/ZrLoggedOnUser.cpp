// SPDX-License-Identifier: MIT
// The helper process that unloads a hive in another's place.
//
//   ZrLoggedOnUser -unload "MOUNT"
//
// Unloads the hive mounted as MOUNT below HKEY_USERS. As the hive may be in use for a moment yet,
// it tries for some seconds. The exit code is 0 or a Win32 error.
#include <windows.h>

#include <cwchar>
#include <initializer_list>

namespace {

constexpr DWORD kTryMilliseconds = 8000;
constexpr DWORD kPauseMilliseconds = 100;

DWORD EnablePrivilege(const wchar_t* name) {
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES, &token)) {
        return ::GetLastError();
    }
    TOKEN_PRIVILEGES change{};
    change.PrivilegeCount = 1;
    change.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    DWORD error = ERROR_SUCCESS;
    if (::LookupPrivilegeValueW(nullptr, name, &change.Privileges[0].Luid)) {
        // Succeeds for a privilege that is not held, and tells so by the last error alone.
        ::SetLastError(ERROR_SUCCESS);
        ::AdjustTokenPrivileges(token, FALSE, &change, sizeof change, nullptr, nullptr);
    }
    error = ::GetLastError();
    ::CloseHandle(token);
    return error;
}

DWORD Unload(const wchar_t* mount) {
    for (const wchar_t* name : {SE_BACKUP_NAME, SE_RESTORE_NAME}) {
        if (const DWORD error = EnablePrivilege(name)) return error;
    }
    const DWORD begun = ::GetTickCount();
    for (;;) {
        const DWORD error = ::RegUnLoadKeyW(HKEY_USERS, mount);
        if (error != ERROR_ACCESS_DENIED || ::GetTickCount() - begun >= kTryMilliseconds) {
            return error;
        }
        ::Sleep(kPauseMilliseconds);
    }
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
    if (count != 3 || std::wcscmp(arguments[1], L"-unload") != 0 || arguments[2][0] == L'\0') {
        return ERROR_INVALID_PARAMETER;
    }
    return static_cast<int>(Unload(arguments[2]));
}
