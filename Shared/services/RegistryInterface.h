// SPDX-License-Identifier: MIT
// The Win32 registry functions, to be replaced where a test or a host needs other answers.
#pragma once

#include <windows.h>

// Every operation forwards its arguments unchanged to the platform function of the same name
// and returns its result. Holds no data; any thread.
class RegistryInterface {
  public:
    virtual ~RegistryInterface() = default;
    virtual LSTATUS RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameChars,
                                  LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD dataBytes) {
        return ::RegEnumValueW(key, index, name, nameChars, reserved, type, data, dataBytes);
    }
    virtual LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type,
                                   const BYTE* data, DWORD bytes) {
        return ::RegSetValueExW(key, name, reserved, type, data, bytes);
    }
    virtual LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type,
                                     LPBYTE data, LPDWORD bytes) {
        return ::RegQueryValueExW(key, name, reserved, type, data, bytes);
    }
    virtual LSTATUS RegDeleteValueW(HKEY key, LPCWSTR name) { return ::RegDeleteValueW(key, name); }
    virtual LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameChars,
                                  LPDWORD reserved, LPWSTR className, LPDWORD classChars,
                                  PFILETIME lastWrite) {
        return ::RegEnumKeyExW(key, index, name, nameChars, reserved, className, classChars,
                               lastWrite);
    }
    virtual LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subkey, DWORD options, REGSAM access,
                                  PHKEY result) {
        return ::RegOpenKeyExW(key, subkey, options, access, result);
    }
    virtual LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subkey, DWORD reserved, LPWSTR className,
                                    DWORD options, REGSAM access, LPSECURITY_ATTRIBUTES security,
                                    PHKEY result, LPDWORD disposition) {
        return ::RegCreateKeyExW(key, subkey, reserved, className, options, access, security,
                                 result, disposition);
    }
    virtual LSTATUS RegDeleteKeyExW(HKEY key, LPCWSTR subkey, REGSAM access, DWORD reserved) {
        return ::RegDeleteKeyExW(key, subkey, access, reserved);
    }
    virtual LSTATUS RegRenameKey(HKEY key, LPCWSTR subkey, LPCWSTR newName) {
        return ::RegRenameKey(key, subkey, newName);
    }
    virtual LSTATUS RegCloseKey(HKEY key) { return ::RegCloseKey(key); }
    virtual LSTATUS RegNotifyChangeKeyValue(HKEY key, BOOL subtree, DWORD filter, HANDLE event,
                                            BOOL asynchronous) {
        return ::RegNotifyChangeKeyValue(key, subtree, filter, event, asynchronous);
    }
    virtual LSTATUS RegQueryInfoKeyW(HKEY key, LPWSTR className, LPDWORD classChars,
                                     LPDWORD reserved, LPDWORD subkeys, LPDWORD longestSubkey,
                                     LPDWORD longestClass, LPDWORD values, LPDWORD longestName,
                                     LPDWORD longestData, LPDWORD securityBytes,
                                     PFILETIME lastWrite) {
        return ::RegQueryInfoKeyW(key, className, classChars, reserved, subkeys, longestSubkey,
                                  longestClass, values, longestName, longestData, securityBytes,
                                  lastWrite);
    }
};
