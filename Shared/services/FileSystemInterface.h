// SPDX-License-Identifier: MIT
// The Win32 file functions, to be replaced where a test or a host needs other answers.
#pragma once

#include <windows.h>

#include <aclapi.h>
#include <shlobj.h>

// Every operation forwards its arguments unchanged to the platform function of the same name
// and returns its result. Holds no data; any thread.
class FileSystemInterface {
  public:
    virtual ~FileSystemInterface() = default;
    virtual DWORD GetFileSize(HANDLE file, LPDWORD high) { return ::GetFileSize(file, high); }
    virtual HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share,
                               LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags,
                               HANDLE templateFile) {
        return ::CreateFileW(path, access, share, security, disposition, flags, templateFile);
    }
    virtual BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD bytes, LPDWORD done,
                          LPOVERLAPPED overlapped) {
        return ::ReadFile(file, buffer, bytes, done, overlapped);
    }
    virtual BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER position,
                                  DWORD method) {
        return ::SetFilePointerEx(file, distance, position, method);
    }
    virtual BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD bytes, LPDWORD done,
                           LPOVERLAPPED overlapped) {
        return ::WriteFile(file, buffer, bytes, done, overlapped);
    }
    virtual DWORD SetFilePointer(HANDLE file, LONG distance, PLONG high, DWORD method) {
        return ::SetFilePointer(file, distance, high, method);
    }
    virtual BOOL DeleteFileW(LPCWSTR path) { return ::DeleteFileW(path); }
    virtual BOOL CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists) {
        return ::CopyFileW(from, to, failIfExists);
    }
    virtual BOOL MoveFileW(LPCWSTR from, LPCWSTR to) { return ::MoveFileW(from, to); }
    virtual BOOL MoveFileExW(LPCWSTR from, LPCWSTR to, DWORD flags) {
        return ::MoveFileExW(from, to, flags);
    }
    virtual HANDLE FindFirstFileW(LPCWSTR mask, LPWIN32_FIND_DATAW data) {
        return ::FindFirstFileW(mask, data);
    }
    virtual BOOL FindNextFileW(HANDLE search, LPWIN32_FIND_DATAW data) {
        return ::FindNextFileW(search, data);
    }
    virtual BOOL FindClose(HANDLE search) { return ::FindClose(search); }
    virtual DWORD GetCurrentDirectoryW(DWORD chars, LPWSTR buffer) {
        return ::GetCurrentDirectoryW(chars, buffer);
    }
    virtual BOOL CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
        return ::CreateDirectoryW(path, security);
    }
    virtual BOOL RemoveDirectoryW(LPCWSTR path) { return ::RemoveDirectoryW(path); }
    virtual DWORD GetTempPathW(DWORD chars, LPWSTR buffer) { return ::GetTempPathW(chars, buffer); }
    virtual UINT GetTempFileNameW(LPCWSTR path, LPCWSTR prefix, UINT unique, LPWSTR buffer) {
        return ::GetTempFileNameW(path, prefix, unique, buffer);
    }
    virtual DWORD GetFileAttributesW(LPCWSTR path) { return ::GetFileAttributesW(path); }
    virtual BOOL GetFileAttributesExW(LPCWSTR path, GET_FILEEX_INFO_LEVELS level,
                                      LPVOID information) {
        return ::GetFileAttributesExW(path, level, information);
    }
    virtual BOOL GetFileTime(HANDLE file, LPFILETIME created, LPFILETIME accessed,
                             LPFILETIME written) {
        return ::GetFileTime(file, created, accessed, written);
    }
    virtual BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER size) {
        return ::GetFileSizeEx(file, size);
    }
    virtual DWORD QueryDosDeviceW(LPCWSTR device, LPWSTR buffer, DWORD chars) {
        return ::QueryDosDeviceW(device, buffer, chars);
    }
    virtual HRESULT SHGetFolderPathW(HWND owner, int folder, HANDLE token, DWORD flags,
                                     LPWSTR path) {
        return ::SHGetFolderPathW(owner, folder, token, flags, path);
    }
    virtual BOOL SetFileAttributesW(LPCWSTR path, DWORD attributes) {
        return ::SetFileAttributesW(path, attributes);
    }
    virtual BOOL SetFileTime(HANDLE file, const FILETIME* created, const FILETIME* accessed,
                             const FILETIME* written) {
        return ::SetFileTime(file, created, accessed, written);
    }
    virtual DWORD SetSecurityInfo(HANDLE object, SE_OBJECT_TYPE type,
                                  SECURITY_INFORMATION information, PSID owner, PSID group,
                                  PACL dacl, PACL sacl) {
        return ::SetSecurityInfo(object, type, information, owner, group, dacl, sacl);
    }
    virtual BOOL CloseHandle(HANDLE handle) { return ::CloseHandle(handle); }
    virtual DWORD GetLongPathNameW(LPCWSTR path, LPWSTR buffer, DWORD chars) {
        return ::GetLongPathNameW(path, buffer, chars);
    }
    virtual DWORD GetShortPathNameW(LPCWSTR path, LPWSTR buffer, DWORD chars) {
        return ::GetShortPathNameW(path, buffer, chars);
    }
};
