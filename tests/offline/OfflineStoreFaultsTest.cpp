// What a store leaves when its file cannot be written. Here the provider is part of the program, so
// that the test can put itself between it and the disk.
#include <filesystem>

#include "FS_Library_DLL/FsOfflineRegistryImpl.h"
#include "tests/offline/OfflineHive.h"
#include "tests/support/FailingHeap.h"
#include "tests/support/FaultFile.h"

using namespace offline_test;
using support::TempDir;

namespace {

// The old file goes before the new one is written; a failure then leaves neither.
TEST(OfflineStoreFaults, AFailedSaveLeavesNoFileAndAClosedStore) {
    TempDir dir;
    const WString path = dir.File("user.dat");
    FsOfflineRegistryImpl store;
    ASSERT_EQ(store.FBR_InitialiseEx(path.c_str()), FSSTATUS_SUCCESS);
    ASSERT_EQ(store.FBR_DeInitialiseEx(), FSSTATUS_SUCCESS);
    ASSERT_TRUE(std::filesystem::exists(dir / "user.dat"));

    ASSERT_EQ(store.FBR_InitialiseEx(path.c_str()), FSSTATUS_SUCCESS);
    int64_t key = 0;
    ASSERT_EQ(store.FBR_CreateDirEx(0, WTEXT("a"), FSCREATEOPTIONS_NONE, &key), FSSTATUS_SUCCESS);
    ASSERT_EQ(store.FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
    {
        support::FaultFile faults;
        faults.Fail(support::FileCall::Write, 1, platform::kErrorDiskFull);
        EXPECT_EQ(store.FBR_DeInitialiseEx(), FSSTATUS_FAILED);
    }
    EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
    EXPECT_EQ(store.FBR_DeInitialiseEx(), FSSTATUS_SUCCESS);
    EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
}

TEST(OfflineStoreFaults, NamesThatFindNoMemoryAreOutOfMemory) {
    TempDir dir;
    FsOfflineRegistryImpl store;
    ASSERT_EQ(store.FBR_InitialiseEx(dir.File("user.dat").c_str()), FSSTATUS_SUCCESS);
    int64_t key = 0;
    ASSERT_EQ(store.FBR_CreateDirEx(0, WTEXT("a"), FSCREATEOPTIONS_NONE, &key), FSSTATUS_SUCCESS);
    int64_t root = 0;
    ASSERT_EQ(store.FBR_OpenDirEx(0, WTEXT(""), &root), FSSTATUS_SUCCESS);
    {
        const support::FailingHeap heap(1, true);
        WChar* name = nullptr;
        EXPECT_EQ(store.FBR_GetName_DirEx(key, &name), FSSTATUS_OUT_OF_MEMORY);
        EXPECT_EQ(store.FBR_EnumIntDirEx(root, 0, &name), FSSTATUS_OUT_OF_MEMORY);
        EXPECT_EQ(store.FBR_EnumIntFileEx(root, 0, &name), FSSTATUS_OUT_OF_MEMORY);
    }
    EXPECT_EQ(store.FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.FBR_DeInitialiseEx(), FSSTATUS_SUCCESS);
}

}  // namespace
