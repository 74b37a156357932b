// SPDX-License-Identifier: MIT
#include "Shared/FileFolderHelpers.h"

#include <gtest/gtest.h>

#include "platform/FileSystem.h"
#include "tests/support/TempDir.h"

using support::TempDir;
using support::Wide;
using support::WriteBytes;
using ZrSharedHelpers::DeleteFileWithRetry;
using ZrSharedHelpers::EnsurePathExists;

namespace {

TEST(FileFolderHelpers, MakeEveryMissingParentAndLeaveWhatIsThere) {
    TempDir dir;
    const auto deep = (dir / "a") / "b" / "c";
    EXPECT_EQ(EnsurePathExists(Wide(deep)), 0u);
    EXPECT_TRUE(std::filesystem::is_directory(deep));
    WriteBytes(deep / "kept", {1});
    for (const auto& path : {deep, deep / "kept"}) EXPECT_EQ(EnsurePathExists(Wide(path)), 0u);
    EXPECT_EQ(support::ReadBytes(deep / "kept").size(), 1u);
    EXPECT_EQ(EnsurePathExists(WTEXT("")), 87u);
    EXPECT_EQ(EnsurePathExists(WTEXT("no-separator-in-this-missing-name")), 161u);
    EXPECT_NE(EnsurePathExists(Wide(deep / "kept" / "below")), 0u);
}

TEST(FileFolderHelpers, DeleteReadOnlyFilesAndEmptyFolders) {
    TempDir dir;
    const platform::WString locked = dir.File("locked");
    WriteBytes(dir / "locked", {1});
    std::filesystem::create_directories(dir / "folder");
    std::filesystem::create_directories((dir / "full") / "inside");
    ASSERT_EQ(platform::SetAttributes(locked.c_str(), platform::kAttributeReadOnly), 0u);
    uint32_t attributes = 0;
    ASSERT_EQ(platform::GetAttributes(locked.c_str(), &attributes), 0u);
    EXPECT_TRUE(attributes & platform::kAttributeReadOnly);
    EXPECT_EQ(DeleteFileWithRetry(locked), 0u);
    EXPECT_FALSE(std::filesystem::exists(dir / "locked"));
    EXPECT_EQ(DeleteFileWithRetry(dir.File("folder")), 0u);
    EXPECT_EQ(DeleteFileWithRetry(dir.File("full")), 145u);
    EXPECT_EQ(DeleteFileWithRetry(dir.File("missing")), 2u);
    EXPECT_EQ(DeleteFileWithRetry(Wide(dir / "missing" / "x")), 3u);
}

TEST(RenameNew, NeverReplaces) {
    TempDir dir;
    WriteBytes(dir / "new", {1});
    WriteBytes(dir / "old", {2});
    EXPECT_EQ(platform::RenameNew(dir.File("new").c_str(), dir.File("old").c_str()), 183u);
    EXPECT_EQ(support::ReadBytes(dir / "old"), support::Bytes{2});
    EXPECT_EQ(platform::RenameNew(dir.File("new").c_str(), dir.File("other").c_str()), 0u);
    EXPECT_EQ(support::ReadBytes(dir / "other"), support::Bytes{1});
    EXPECT_FALSE(std::filesystem::exists(dir / "new"));
}

}  // namespace
