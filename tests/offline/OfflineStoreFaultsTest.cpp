// SPDX-License-Identifier: MIT
// What a store leaves when its file cannot be written. Here the provider is part of the program, so
// that the test can put itself between it and the disk.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <filesystem>

#include "FS_Library_DLL/IFSInterface.h"
#include "offreg/OfflineRegistry.h"
#include "tests/offline/SavedValue.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FaultFile.h"
#include "tests/support/RunProcess.h"

using namespace offline_test;
using support::TempDir;

namespace {

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

// Another user.
const support::ChildRole kSaveAs("save-as", [](const std::vector<std::string>& words) {
    if (setgid(1235) != 0 || setuid(1234) != 0) return 99;
    return static_cast<int>(Save(platform::FromUtf8(words[0]), {2}));
});

// The file would become that user's.
TEST(OfflineStoreFaults, AnOwnerThatCannotBeKeptIsToldAndTheFileStays) {
    if (geteuid() != 0) GTEST_SKIP() << "takes another user";
    TempDir dir;
    const auto file = dir / "user.dat";
    ASSERT_EQ(Save(support::Wide(file), {1}), FSSTATUS_SUCCESS);
    const Bytes before = support::ReadBytes(file);
    std::filesystem::permissions(file, std::filesystem::perms(0666));
    std::filesystem::permissions(dir.Path(), std::filesystem::perms::all);
    EXPECT_EQ(support::ChildProcess("save-as", {file.string()}).Wait(), FSSTATUS_ACCESS_DENIED);
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

TEST(OfflineClasses, AreReadByOtherPrograms) {
    TempDir dir;
    ORHKEY hive = nullptr, key = nullptr;
    ASSERT_EQ(ORCreateHive(&hive), 0u);
    EXPECT_EQ(ORCreateKey(hive, WTEXT("k"), WTEXT("Shell"), 0, nullptr, &key, nullptr), 0u);
    EXPECT_EQ(ORSaveHive(hive, dir.File("a").c_str(), 6, 1), 0u);
    EXPECT_EQ(ORCloseHive(hive), 0u);
    for (const char* line : {"reglookup -s a 2>&1 | grep ',Shell$'", "regfexport a | grep Shell"})
        EXPECT_EQ(support::RunProcess("/bin/sh", {"-c", "cd " + dir.Path().string() + "; " + line})
                      .status,
                  0)
            << line;
}

}  // namespace
