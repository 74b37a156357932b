// SPDX-License-Identifier: MIT
// The key of which a new hive file is made.
#pragma once

#include <windows.h>

#include <string>

#include "Shared/UserIdentity.h"

// A key of a new name in a user's own hive, with the version value that every hive of this system
// has at its root. It is deleted with the object.
class TemporaryHiveKey {
  public:
    // Makes the key as the user, below the user's SID. Throws w32utils::basic_w32_runtime_error
    // when no new name can be had.
    TemporaryHiveKey(const std::wstring& sid, const CUserIdentity& identity);
    ~TemporaryHiveKey();
    TemporaryHiveKey(const TemporaryHiveKey&) = delete;
    TemporaryHiveKey& operator=(const TemporaryHiveKey&) = delete;

    HKEY Key() const { return key_; }
    // 0, or the Win32 error of making the key.
    DWORD Status() const { return status_; }

  private:
    std::wstring Subkey() const { return parent_ + L"\\" + name_; }

    HKEY key_ = nullptr;
    std::wstring parent_;
    std::wstring name_;
    DWORD status_ = 0;
};
