// SPDX-License-Identifier: MIT
// Processes and their tokens, to be replaced where a test or a host needs other answers.
#pragma once

#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

// Every operation forwards its arguments unchanged to the platform function of the same name
// and returns its result. Holds no data; any thread.
class ProcessInterface {
  public:
    virtual ~ProcessInterface() = default;
    virtual HANDLE OpenProcess(DWORD access, BOOL inherit, DWORD process) {
        return ::OpenProcess(access, inherit, process);
    }
    virtual BOOL CloseHandle(HANDLE handle) { return ::CloseHandle(handle); }
    virtual DWORD K32GetModuleFileNameExW(HANDLE process, HMODULE module, LPWSTR buffer,
                                          DWORD chars) {
        return ::K32GetModuleFileNameExW(process, module, buffer, chars);
    }
    virtual HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD process) {
        return ::CreateToolhelp32Snapshot(flags, process);
    }
    virtual BOOL Process32FirstW(HANDLE snapshot, LPPROCESSENTRY32W entry) {
        return ::Process32FirstW(snapshot, entry);
    }
    virtual BOOL Process32NextW(HANDLE snapshot, LPPROCESSENTRY32W entry) {
        return ::Process32NextW(snapshot, entry);
    }
    virtual BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) {
        return ::OpenProcessToken(process, access, token);
    }
    virtual BOOL CreateProcessAsUserW(HANDLE token, LPCWSTR program, LPWSTR commandLine,
                                      LPSECURITY_ATTRIBUTES processSecurity,
                                      LPSECURITY_ATTRIBUTES threadSecurity, BOOL inherit,
                                      DWORD flags, LPVOID environment, LPCWSTR directory,
                                      LPSTARTUPINFOW startup, LPPROCESS_INFORMATION information) {
        return ::CreateProcessAsUserW(token, program, commandLine, processSecurity, threadSecurity,
                                      inherit, flags, environment, directory, startup, information);
    }
    virtual BOOL DuplicateTokenEx(HANDLE token, DWORD access, LPSECURITY_ATTRIBUTES security,
                                  SECURITY_IMPERSONATION_LEVEL level, TOKEN_TYPE type,
                                  PHANDLE result) {
        return ::DuplicateTokenEx(token, access, security, level, type, result);
    }
    virtual BOOL SetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID information,
                                     DWORD bytes) {
        return ::SetTokenInformation(token, kind, information, bytes);
    }
};
