#include "tests/storage/namespace/Store.h"

namespace tests {

TEST(Move, WithinADirectoryKeepsEverythingButTheName) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d")), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\d\\a"), "text"), kOk);
    const auto before = *store.ReadSound().At(u"\\d\\a");
    ASSERT_EQ(store.Move(WTEXT("\\d\\a"), WTEXT("\\d\\b")), kOk);
    const auto after = *store.ReadSound().At(u"\\d\\b");
    EXPECT_EQ(after.fileId, before.fileId);
    EXPECT_EQ(after.headerPage, before.headerPage);
    EXPECT_EQ(after.modified, before.modified);
    EXPECT_EQ(after.body, before.body);
    EXPECT_FALSE(store.Exists(WTEXT("\\d\\a")));
}

TEST(Move, ChangesCaseAndNothingElse) {
    Store store;
    ASSERT_EQ(store.Put(WTEXT("\\Name"), "text"), kOk);
    EXPECT_EQ(store.Move(WTEXT("\\Name"), WTEXT("\\Name")), kExists);
    EXPECT_EQ(store.Move(WTEXT("\\Name"), WTEXT("\\NAME")), kOk);
    EXPECT_EQ(store.List(WTEXT("\\*")), Names({WTEXT("NAME")}));
    // Another spelling of the path is enough.
    EXPECT_EQ(store.Move(WTEXT("\\NAME"), WTEXT("NAME")), kOk);
    ASSERT_EQ(StorageSetCaseSensitive(store, 1), kOk);
    EXPECT_EQ(store.Move(WTEXT("\\NAME"), WTEXT("NAME")), kExists);
    EXPECT_EQ(store.Move(WTEXT("\\NAME"), WTEXT("\\name")), kOk);
    EXPECT_EQ(store.List(WTEXT("\\*")), Names({WTEXT("name")}));
    EXPECT_EQ(store.ReadSound().root.children.size(), 1u);
}

TEST(Move, OntoAnExistingNameLeavesBoth) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d")), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\a"), "a"), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\d\\a"), "da"), kOk);
    EXPECT_EQ(store.Move(WTEXT("\\a"), WTEXT("\\D")), kExists);
    EXPECT_EQ(store.Move(WTEXT("\\a"), WTEXT("\\d\\A")), kExists);
    EXPECT_EQ(store.Text(WTEXT("\\a")), "a");
    EXPECT_EQ(store.Text(WTEXT("\\d\\a")), "da");
    store.ReadSound();
}

TEST(Move, TakesASubtreeWithItsOpenHandles) {
    Store store;
    for (const WChar* path :
         {WTEXT("\\a"), WTEXT("\\a\\b"), WTEXT("\\a\\b\\c"), WTEXT("\\x"), WTEXT("\\x\\y")})
        ASSERT_EQ(store.MakeDirectory(path), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\a\\b\\c\\v"), "value"), kOk);
    FileHandle* file = nullptr;
    ASSERT_EQ(store.OpenHandle(WTEXT("\\a\\b\\c\\v"), &file, true), kOk);
    uint32_t done = 0;
    ASSERT_EQ(StorageWriteFile(file, "V", 1, &done), kOk);
    ASSERT_EQ(store.Move(WTEXT("\\a\\b"), WTEXT("\\x\\y\\") + Repeat('b', 40)), kOk);
    const WString moved = WTEXT("\\x\\y\\") + Repeat('b', 40) + WTEXT("\\c");
    EXPECT_EQ(store.Delete(WTEXT("\\a")), kOk);  // nobody holds it any more
    EXPECT_EQ(store.Delete(moved + WTEXT("\\v")), kSharing);
    ASSERT_EQ(StorageWriteFile(file, "A", 1, &done), kOk);
    ASSERT_EQ(StorageCloseFile(file), kOk);
    EXPECT_EQ(store.Text(moved + WTEXT("\\v")), "VAlue");
    const auto reading = store.ReadSound();
    EXPECT_EQ(reading.root.children.size(), 1u);
    ASSERT_EQ(store.Delete(moved + WTEXT("\\v")), kOk);
    ASSERT_EQ(store.Delete(moved), kOk);
}

TEST(Move, OfAFileThatIsBeingWritten) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d")), kOk);
    FileHandle* file = nullptr;
    ASSERT_EQ(store.CreateHandle(WTEXT("\\f"), &file), kOk);
    uint32_t done = 0;
    ASSERT_EQ(StorageWriteFile(file, "one", 3, &done), kOk);
    ASSERT_EQ(store.Move(WTEXT("\\f"), WTEXT("\\d\\g")), kOk);
    ASSERT_EQ(StorageWriteFile(file, "two", 3, &done), kOk);
    ASSERT_EQ(store.Move(WTEXT("\\d\\g"), WTEXT("\\d\\h")), kOk);
    ASSERT_EQ(StorageWriteFile(file, "six", 3, &done), kOk);
    ASSERT_EQ(StorageCloseFile(file), kOk);
    EXPECT_EQ(store.Text(WTEXT("\\d\\h")), "onetwosix");
    store.ReadSound();
}

// What would be cut off from the root, with all below it, is refused.
TEST(Move, NotBelowItself) {
    Store store;
    for (const WChar* path : {WTEXT("\\a"), WTEXT("\\a\\b"), WTEXT("\\a\\b\\c")})
        ASSERT_EQ(store.MakeDirectory(path), kOk);
    EXPECT_EQ(store.Move(WTEXT("\\a"), WTEXT("\\a\\b\\c\\a")), kInvalid);
    EXPECT_EQ(store.Move(WTEXT("\\a"), WTEXT("\\a\\x")), kInvalid);
    EXPECT_TRUE(store.Exists(WTEXT("\\a\\b\\c")));
    EXPECT_EQ(store.Move(WTEXT("\\a\\b\\c"), WTEXT("\\a\\c")), kOk);
    EXPECT_EQ(store.Move(WTEXT("\\a\\c"), WTEXT("\\c")), kOk);
    EXPECT_EQ(store.Move(WTEXT("\\a"), WTEXT("\\c\\a")), kOk);
    EXPECT_TRUE(store.Exists(WTEXT("\\c\\a\\b")));
    store.ReadSound();
}

TEST(Move, OfABranchThatIsRememberedAndDeep) {
    Store store;
    WString path = WTEXT("\\t");
    ASSERT_EQ(store.MakeDirectory(path), kOk);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(store.MakeDirectory(path += WTEXT("\\k")), kOk);
    ASSERT_EQ(store.Put(path + WTEXT("\\v"), "v"), kOk);
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\u")), kOk);
    ASSERT_EQ(store.Move(WTEXT("\\t\\k\\k"), WTEXT("\\u\\k")), kOk);
    EXPECT_FALSE(store.Exists(path + WTEXT("\\v")));
    EXPECT_EQ(store.Text(WTEXT("\\u") + path.substr(4) + WTEXT("\\v")), "v");
    store.ReadSound();
}

}  // namespace tests
