// SPDX-License-Identifier: MIT
// Reading and writing single registry values by path, through the replaceable registry functions.
#pragma once

#include <windows.h>

#include <string>

namespace registry_util {

// Reads the text of a value below HKEY_LOCAL_MACHINE, less the zeros at its end. The error goes
// to `error`, which may be null; on failure the text is empty. Types whose two low bits are both
// clear (such as REG_DWORD) are refused with ERROR_BAD_FORMAT, 0 excepted.
std::wstring read_wstring(const std::wstring& subkey, const std::wstring& name, DWORD* error);

// Writes a REG_DWORD below `root`, making the key and its parents where they are missing. 0 or a
// Win32 error.
DWORD write_dword(HKEY root, const std::wstring& subkey, const std::wstring& name, DWORD value);

}  // namespace registry_util
