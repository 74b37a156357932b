// SPDX-License-Identifier: MIT
// The library as it is shipped, from C and from C++, with only its public headers.
#include <gtest/gtest.h>

#include "include/FsError.h"
#include "include/IFBRSettingsFile.h"
#include "include/ZrFsLibrary.h"
#include "tests/support/TempDir.h"

// In FlatCallsTest.c: 0, or the line of the first failure.
extern "C" int SetAndReadFromC(const FBR_WCHAR* path);

namespace {

TEST(SharedLibrary, ServesC) {
    support::TempDir dir;
    EXPECT_EQ(SetAndReadFromC(dir.File("c.fbr").c_str()), 0);
}

TEST(SharedLibrary, ServesCpp) {
    support::TempDir dir;
    {
        const auto file = CreateFBRSettingsFile(dir.File("s.fbr"), FS_VR_METHOD_TARN);
        ASSERT_EQ(file->Create(false), FSSTATUS_SUCCESS);
        EXPECT_EQ(file->SetString(WTEXT("\\k"), WTEXT("v"), WTEXT("x"), true), FSSTATUS_SUCCESS);
    }
    FBR_STORE store = nullptr;
    ASSERT_EQ(FBR_InitialiseEx(dir.File("s.fbr").c_str(), &store, FS_VR_METHOD_TARN),
              FSSTATUS_SUCCESS);
    FBR_KEY key = 0;
    EXPECT_EQ(FBR_OpenDirEx(0, WTEXT("\\"), &key, store), FSSTATUS_SUCCESS);
    std::vector<platform::WString> names;
    const FBR_STATUS status = FBR_EnumerateAllKeys(key, names, store);
    EXPECT_EQ(FsError::ToWin32(status), 259u);
    EXPECT_EQ(FsError::ToFsStatus(FsError::ToNtStatus(status)), status);
    EXPECT_EQ(FsError::ToFsStatus(FBR_WIN32ERROR{5}), FSSTATUS_ACCESS_DENIED);
    EXPECT_EQ(names, std::vector<platform::WString>{WTEXT("k")});
    EXPECT_EQ(FBR_DeInitialiseEx(store), FSSTATUS_SUCCESS);
}

}  // namespace
