// SPDX-License-Identifier: MIT
// Services and their control, to be replaced where a test or a host needs other answers.
#pragma once

#include <windows.h>

#include <winsvc.h>

// Every operation forwards its arguments unchanged to the platform function of the same name
// and returns its result. Holds no data; any thread.
class ServiceControlManagerInterface {
  public:
    virtual ~ServiceControlManagerInterface() = default;
    virtual SC_HANDLE OpenSCManagerW(LPCWSTR machine, LPCWSTR database, DWORD access) {
        return ::OpenSCManagerW(machine, database, access);
    }
    virtual SC_HANDLE OpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD access) {
        return ::OpenServiceW(manager, name, access);
    }
    virtual BOOL StartServiceW(SC_HANDLE service, DWORD count, LPCWSTR* arguments) {
        return ::StartServiceW(service, count, arguments);
    }
    virtual BOOL CloseServiceHandle(SC_HANDLE handle) { return ::CloseServiceHandle(handle); }
    virtual BOOL QueryServiceStatusEx(SC_HANDLE service, SC_STATUS_TYPE level, LPBYTE buffer,
                                      DWORD bytes, LPDWORD needed) {
        return ::QueryServiceStatusEx(service, level, buffer, bytes, needed);
    }
    virtual BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table) {
        return ::StartServiceCtrlDispatcherW(table);
    }
    virtual SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerExW(LPCWSTR name,
                                                                LPHANDLER_FUNCTION_EX handler,
                                                                LPVOID context) {
        return ::RegisterServiceCtrlHandlerExW(name, handler, context);
    }
    virtual BOOL QueryServiceConfigW(SC_HANDLE service, LPQUERY_SERVICE_CONFIGW buffer, DWORD bytes,
                                     LPDWORD needed) {
        return ::QueryServiceConfigW(service, buffer, bytes, needed);
    }
    virtual BOOL SetServiceStatus(SERVICE_STATUS_HANDLE handle, LPSERVICE_STATUS status) {
        return ::SetServiceStatus(handle, status);
    }
};
