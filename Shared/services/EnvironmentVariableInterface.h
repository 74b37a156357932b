// SPDX-License-Identifier: MIT
// The environment of the process, to be replaced where a test or a host needs other answers.
#pragma once

#include <windows.h>

// Every operation forwards its arguments unchanged to the platform function of the same name
// and returns its result. Holds no data; any thread.
class EnvironmentVariableInterface {
  public:
    virtual ~EnvironmentVariableInterface() = default;
    virtual DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD chars) {
        return ::GetEnvironmentVariableW(name, buffer, chars);
    }
    virtual BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value) {
        return ::SetEnvironmentVariableW(name, value);
    }
};
