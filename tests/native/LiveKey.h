// SPDX-License-Identifier: MIT
// A key of the live registry for one test, and short ways to use a store on it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FS_Library_DLL/native/FsNativeRegistryImpl.h"
#include "platform/Heap.h"
#include "tests/support/windows/ProcessState.h"
#include "tests/support/windows/Replace.h"

namespace native {

inline const std::wstring kTestKey = L"Software\\ZrFsNativeTest";

// The kernel's path of HKEY_CURRENT_USER.
inline std::wstring CurrentUserPath() {
    UNICODE_STRING path{};
    EXPECT_EQ(GetNtDllFunctions()->RtlFormatCurrentUserKeyPath(&path), 0);
    std::wstring text(path.Buffer, path.Length / sizeof(wchar_t));
    GetNtDllFunctions()->RtlFreeUnicodeString(&path);
    return text;
}

inline bool ExistsInRegistry(const std::wstring& subkey) {
    HKEY key = nullptr;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, subkey.c_str(), 0, KEY_READ, &key) != 0) return false;
    ::RegCloseKey(key);
    return true;
}

inline void DeleteFromRegistry(const std::wstring& subkey) {
    ::RegDeleteTreeW(HKEY_CURRENT_USER, subkey.c_str());
}

class LiveStore : public support::LeavesNothingBehind {
  protected:
    void SetUp() override {
        DeleteFromRegistry(kTestKey);
        rootPath_ = CurrentUserPath() + L"\\" + kTestKey;
        LeavesNothingBehind::SetUp();
        store_ = Open(false);
    }
    void TearDown() override {
        store_.reset();
        LeavesNothingBehind::TearDown();
        DeleteFromRegistry(kTestKey);
    }

    std::unique_ptr<FsNativeRegistryImpl> Open(bool pathOnly) {
        auto store = std::make_unique<FsNativeRegistryImpl>(pathOnly);
        EXPECT_EQ(store->FBR_InitialiseEx(rootPath_.c_str()), FSSTATUS_SUCCESS);
        return store;
    }

    FBR_STATUS Create(const std::wstring& name, int64_t parent = 0) {
        int64_t key = 0;
        const FBR_STATUS status =
            store_->FBR_CreateDirEx(parent, name.c_str(), FSCREATEOPTIONS_NONE, &key);
        if (key != 0) {
            EXPECT_EQ(store_->FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
        }
        return status;
    }
    FBR_STATUS Probe(const std::wstring& name, int64_t parent = 0) {
        int64_t key = 0;
        const FBR_STATUS status = store_->FBR_OpenDirEx(parent, name.c_str(), &key);
        if (key != 0) {
            EXPECT_EQ(store_->FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
        }
        return status;
    }
    // A key that is made if need be, to be closed by the caller.
    int64_t Key(const std::wstring& name) {
        int64_t key = 0;
        const FBR_STATUS status =
            store_->FBR_CreateDirEx(0, name.c_str(), FSCREATEOPTIONS_NONE, &key);
        EXPECT_TRUE(status == FSSTATUS_SUCCESS || status == FSSTATUS_ALREADY_EXISTS) << status;
        return key;
    }
    // Takes over a string that a store handed out.
    static std::wstring Taken(WChar* text) {
        const std::wstring copy(text == nullptr ? L"<null>" : text);
        platform::HeapRelease(text);
        return copy;
    }

    std::wstring rootPath_;
    std::unique_ptr<FsNativeRegistryImpl> store_;
};

}  // namespace native
