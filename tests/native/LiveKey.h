// SPDX-License-Identifier: MIT
// A store on a key of the live registry of one test.
#pragma once

#include <optional>

#include "FS_Library_DLL/IFSInterface.h"
#include "tests/support/Store.h"
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

class LiveStore : public support::LeavesNothingBehind {
  protected:
    void SetUp() override {
        Drop();
        LeavesNothingBehind::SetUp();
        store_.emplace(rootPath_, FS_VR_METHOD_NATIVE);
        EXPECT_EQ(store_->status, FSSTATUS_SUCCESS);
    }
    void TearDown() override {
        store_.reset();
        LeavesNothingBehind::TearDown();
        Drop();
    }
    static void Drop() { ::RegDeleteTreeW(HKEY_CURRENT_USER, kTestKey.c_str()); }

    const std::wstring rootPath_ = CurrentUserPath() + L"\\" + kTestKey;
    std::optional<support::Store> store_;
};

}  // namespace native
