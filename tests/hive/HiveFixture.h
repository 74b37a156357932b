// SPDX-License-Identifier: MIT
// A hive store of one test: its folder, its mount and what the system would list of it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "FS_Library_DLL/hive/FsHiveRegistryImpl.h"
#include "FS_Library_DLL/hive/HivePrivileges.h"
#include "include/FsError.h"
#include "tests/support/TempDir.h"
#include "tests/support/windows/LogCapture.h"
#include "tests/support/windows/ProcessState.h"
#include "tests/support/windows/Replace.h"

namespace hive {

inline constexpr wchar_t kMount[] = L"ZrFsHiveTest";
inline constexpr wchar_t kHiveList[] = L"System\\CurrentControlSet\\Control\\HiveList";

// Wine keeps no list of the mounted hives, so a test writes the entry that the system would.
inline void ListHive(const std::wstring& mount, const std::wstring& file) {
    const std::wstring name = L"\\REGISTRY\\USER\\" + mount;
    const std::wstring path = L"\\??\\" + file;
    EXPECT_EQ(::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kHiveList, name.c_str(), REG_SZ, path.c_str(),
                                static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t))),
              0);
}
inline void UnlistHive(const std::wstring& mount) {
    ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kHiveList, (L"\\REGISTRY\\USER\\" + mount).c_str());
}

inline bool IsMounted(const std::wstring& mount) {
    HKEY key = nullptr;
    if (::RegOpenKeyExW(HKEY_USERS, mount.c_str(), 0, KEY_READ, &key) != 0) return false;
    ::RegCloseKey(key);
    return true;
}

// Takes a mount away whatever a test left of it.
inline void Unmount(const std::wstring& mount) {
    RunWithHivePrivileges([&] {
        ::RegUnLoadKeyW(HKEY_USERS, mount.c_str());
        return FSSTATUS_SUCCESS;
    });
    ::RegDeleteTreeW(HKEY_USERS, mount.c_str());
}

inline void Touch(const std::filesystem::path& path) {
    support::WriteBytes(path, {'x'});
}

class HiveStore : public support::LeavesNothingBehind {
  protected:
    void SetUp() override {
        Unmount(kMount);
        UnlistHive(kMount);
        folder_ = std::make_unique<support::TempDir>();
        file_ = (*folder_ / "user.dat").wstring();
        keysBefore_ = UserKeys();
        LeavesNothingBehind::SetUp();
        store_ = std::make_unique<FsHiveRegistryImpl>(kMount);
        log_ = std::make_unique<support::LogCapture>();
    }
    void TearDown() override {
        log_.reset();
        store_.reset();
        LeavesNothingBehind::TearDown();
        Unmount(kMount);
        UnlistHive(kMount);
        EXPECT_EQ(UserKeys(), keysBefore_) << "a temporary key was left behind";
        folder_.reset();
    }

    // Opens the store and lists it.
    void OpenListed() {
        ASSERT_EQ(store_->FBR_InitialiseEx(file_.c_str()), FSSTATUS_SUCCESS) << log_->All();
        ListHive(kMount, file_);
    }
    FBR_STATUS Initialise(const std::wstring& path) {
        return store_->FBR_InitialiseEx(path.c_str());
    }

    // The number of keys in the user's own hive.
    static DWORD UserKeys() {
        DWORD count = 0;
        ::RegQueryInfoKeyW(HKEY_CURRENT_USER, nullptr, nullptr, nullptr, &count, nullptr, nullptr,
                           nullptr, nullptr, nullptr, nullptr, nullptr);
        return count;
    }

    std::unique_ptr<support::TempDir> folder_;
    std::wstring file_;
    std::unique_ptr<FsHiveRegistryImpl> store_;
    std::unique_ptr<support::LogCapture> log_;

  private:
    DWORD keysBefore_ = 0;
};

}  // namespace hive
