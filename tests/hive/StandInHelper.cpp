// SPDX-License-Identifier: MIT
// Stands in for the helper process: does what the mount name says, "exit CODE" or "sleep
// MILLISECONDS", and refuses every other.
#include <windows.h>

#include <cwchar>

int wmain(int count, wchar_t** arguments) {
    if (count != 3 || std::wcscmp(arguments[1], L"-unload") != 0) return ERROR_INVALID_PARAMETER;
    DWORD number = 0;
    if (::swscanf(arguments[2], L"exit %lu", &number) == 1) ::ExitProcess(number);
    if (::swscanf(arguments[2], L"sleep %lu", &number) == 1) ::Sleep(number);
    return ERROR_ACCESS_DENIED;
}
