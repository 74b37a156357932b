#include "Shared/FileFolderHelpers.h"

#include <gtest/gtest.h>

#include "platform/FileSystem.h"
#include "tests/support/TempDir.h"

using support::TempDir;
using support::WriteBytes;

namespace {

TEST(EnsurePathExists, MakesEveryMissingParentAndLeavesWhatIsThere) {
    TempDir dir;
    const auto deep = (dir / "a") / "b" / "c";
    EXPECT_EQ(ZrSharedHelpers::EnsurePathExists(support::Wide(deep)), 0u);
    EXPECT_TRUE(std::filesystem::is_directory(deep));
    WriteBytes(deep / "kept", {1});
    EXPECT_EQ(ZrSharedHelpers::EnsurePathExists(support::Wide(deep)), 0u);
    EXPECT_EQ(ZrSharedHelpers::EnsurePathExists(support::Wide(deep / "kept")), 0u);
    EXPECT_EQ(support::ReadBytes(deep / "kept").size(), 1u);
}

TEST(EnsurePathExists, RefusesWhatCannotBeMade) {
    TempDir dir;
    EXPECT_EQ(ZrSharedHelpers::EnsurePathExists(WTEXT("")), 87u);
    EXPECT_EQ(ZrSharedHelpers::EnsurePathExists(WTEXT("no-separator-in-this-missing-name")), 161u);
    WriteBytes(dir / "file", {1});
    EXPECT_NE(ZrSharedHelpers::EnsurePathExists(support::Wide(dir / "file" / "below")), 0u);
}

TEST(DeleteFileWithRetry, TakesTheReadOnlyAttributeOff) {
    TempDir dir;
    WriteBytes(dir / "locked", {1});
    ASSERT_EQ(platform::SetAttributes(dir.File("locked").c_str(), platform::kAttributeReadOnly),
              0u);
    uint32_t attributes = 0;
    ASSERT_EQ(platform::GetAttributes(dir.File("locked").c_str(), &attributes), 0u);
    EXPECT_TRUE(attributes & platform::kAttributeReadOnly);
    EXPECT_EQ(ZrSharedHelpers::DeleteFileWithRetry(dir.File("locked")), 0u);
    EXPECT_FALSE(std::filesystem::exists(dir / "locked"));
}

TEST(DeleteFileWithRetry, DeletesAnEmptyFolderAndReportsTheRest) {
    TempDir dir;
    std::filesystem::create_directories(dir / "folder");
    std::filesystem::create_directories((dir / "full") / "inside");
    EXPECT_EQ(ZrSharedHelpers::DeleteFileWithRetry(dir.File("folder")), 0u);
    EXPECT_EQ(ZrSharedHelpers::DeleteFileWithRetry(dir.File("full")), 145u);
    EXPECT_EQ(ZrSharedHelpers::DeleteFileWithRetry(dir.File("missing")), 2u);
    EXPECT_EQ(ZrSharedHelpers::DeleteFileWithRetry(support::Wide(dir / "missing" / "x")), 3u);
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
