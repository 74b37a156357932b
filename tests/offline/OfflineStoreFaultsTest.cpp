// SPDX-License-Identifier: MIT
// What a store leaves when its file cannot be written. Here the provider is part of the program, so
// that the test can put itself between it and the disk.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <filesystem>

#include "FS_Library_DLL/IFSInterface.h"
#include "tests/offline/SavedValue.h"
#include "tests/support/FailingHeap.h"
#include "tests/support/FaultFile.h"

using namespace offline_test;
using support::TempDir;

namespace {

struct stat StatOf(const std::filesystem::path& path) {
    struct stat found = {};
    EXPECT_EQ(lstat(path.c_str(), &found), 0);
    return found;
}

TEST(OfflineStoreFaults, WhateverCallFailsTheOldFileStaysAndNothingElse) {
    TempDir dir;
    const WString path = dir.File("user.dat");
    ASSERT_EQ(Save(path, {1}), FSSTATUS_SUCCESS);
    const Bytes before = support::ReadBytes(dir / "user.dat");
    uint64_t number = 1;
    for (;; ++number) {
        Offline store(path);
        // More than one write takes at once.
        ASSERT_EQ(store.Set(store.Root(), "w", Bytes(9 << 20, 1)), FSSTATUS_SUCCESS);
        support::FaultFile faults;
        faults.FailAny(number, platform::kErrorDiskFull);
        faults.OnFailingWrite(support::FaultFile::Write::FirstHalf);
        const FBR_STATUS status = store.handle->FBR_DeInitialiseEx();
        if (faults.Hits() == 0) break;
        EXPECT_EQ(status, FSSTATUS_FAILED) << number;
        EXPECT_EQ(support::ReadBytes(dir / "user.dat"), before) << number;
        EXPECT_EQ(FilesIn(dir), 1u) << number;
        // Closed is closed: there is nothing left to save.
        EXPECT_EQ(store.Close(), FSSTATUS_SUCCESS);
    }
    EXPECT_GT(number, 6u);
    EXPECT_NE(support::ReadBytes(dir / "user.dat"), before);
}

TEST(OfflineStoreFaults, ASaveKeepsOwnerModeAndLinks) {
    TempDir dir;
    const WString path = dir.File("link");
    std::filesystem::create_directory(dir / "elsewhere");
    std::filesystem::create_symlink(std::filesystem::path("elsewhere") / "user.dat", dir / "link");
    // A link that leads to nothing is no place for a hive.
    EXPECT_EQ(Save(path, {1}), FSSTATUS_PATH_NOT_FOUND);
    const auto file = dir / "elsewhere" / "user.dat";
    ASSERT_EQ(Save(support::Wide(file), {1}), FSSTATUS_SUCCESS);
    ASSERT_EQ(chmod(file.c_str(), 0604), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(file.c_str(), 1234, 1235), 0);
    }
    const struct stat before = StatOf(file);
    ASSERT_EQ(Save(path, {2}), FSSTATUS_SUCCESS);
    EXPECT_TRUE(S_ISLNK(StatOf(dir / "link").st_mode));
    const struct stat after = StatOf(file);
    EXPECT_NE(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
    EXPECT_EQ(Load(path), Bytes{2});
}

// The file would become another user's.
TEST(OfflineStoreFaults, AnOwnerThatCannotBeKeptIsToldAndTheFileStays) {
    if (geteuid() != 0) GTEST_SKIP() << "takes another user";
    TempDir dir;
    const auto file = dir / "user.dat";
    ASSERT_EQ(Save(support::Wide(file), {1}), FSSTATUS_SUCCESS);
    const Bytes before = support::ReadBytes(file);
    ASSERT_EQ(chmod(file.c_str(), 0666), 0);
    ASSERT_EQ(chmod(dir.Path().c_str(), 0777), 0);
    const pid_t child = fork();
    if (child == 0) {
        const bool changed = setgid(1235) == 0 && setuid(1234) == 0;
        _exit(changed ? static_cast<int>(Save(support::Wide(file), {2})) : 99);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), FSSTATUS_ACCESS_DENIED);
    EXPECT_EQ(support::ReadBytes(file), before);
    EXPECT_EQ(FilesIn(dir), 1u);
}

// A lock that is held for long ends in a failure, not in a wait without end.
TEST(OfflineStoreFaults, AFileThatIsHeldIsToldInGoodTime) {
    TempDir dir;
    ASSERT_EQ(Save(dir.File("user.dat"), {1}), FSSTATUS_SUCCESS);
    const int held = open((dir / "user.dat").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    EXPECT_EQ(Save(dir.File("user.dat"), {2}), FSSTATUS_SHARING_VIOLATION);
    close(held);
    EXPECT_EQ(Load(dir.File("user.dat")), Bytes{1});
    EXPECT_EQ(FilesIn(dir), 1u);
}

TEST(OfflineStoreFaults, NamesThatFindNoMemoryAreOutOfMemory) {
    TempDir dir;
    Offline store(dir.File("user.dat"));
    const int64_t key = store.Make("a"), root = store.Root();
    {
        const support::FailingHeap heap(1, true);
        WChar* name = nullptr;
        EXPECT_EQ(store.handle->FBR_GetName_DirEx(key, &name), FSSTATUS_OUT_OF_MEMORY);
        EXPECT_EQ(store.handle->FBR_EnumIntDirEx(root, 0, &name), FSSTATUS_OUT_OF_MEMORY);
        EXPECT_EQ(store.handle->FBR_EnumIntFileEx(root, 0, &name), FSSTATUS_OUT_OF_MEMORY);
    }
}

}  // namespace
