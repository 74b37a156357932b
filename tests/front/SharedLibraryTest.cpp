// SPDX-License-Identifier: MIT
// The library as it is shipped, from C and from C++, with only its public headers.
#include "include/FsError.h"
#include "include/IFBRSettingsFile.h"
#include "tests/support/Store.h"

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
    support::Store store(dir.File("s.fbr"));
    EXPECT_EQ(store.Keys(store.Root()), support::Names{WTEXT("k")});
    const FBR_STATUS status = store.TryOpen("x");
    EXPECT_EQ(FsError::ToWin32(status), 2u);
    EXPECT_EQ(FsError::ToFsStatus(FsError::ToNtStatus(status)), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(FsError::ToFsStatus(FBR_WIN32ERROR{5}), FSSTATUS_ACCESS_DENIED);
}

}  // namespace
