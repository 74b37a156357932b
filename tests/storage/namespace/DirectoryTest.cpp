#include "tests/storage/namespace/Store.h"

namespace tests {

TEST(Directory, AFullEntryPageGetsASuccessor) {
    Store store;
    for (int i = 0; i < 7; ++i) ASSERT_EQ(store.Put(WTEXT("\\f") + Store::Number(i)), kOk);
    EXPECT_EQ(store.Get()->objects->root->directoryPages.Count(), 1u);
    ASSERT_EQ(store.Put(WTEXT("\\f7")), kOk);
    EXPECT_EQ(store.Get()->objects->root->directoryPages.Count(), 2u);
    // The place of a deleted name is taken again, and the directory keeps its pages.
    for (int i = 0; i < 8; ++i) ASSERT_EQ(store.Delete(WTEXT("\\f") + Store::Number(i)), kOk);
    const uint32_t used = store.ReadSound().usedPages;
    for (int i = 0; i < 14; ++i)
        ASSERT_EQ(store.MakeDirectory(WTEXT("\\d") + Store::Number(i)), kOk);
    EXPECT_EQ(store.ReadSound().usedPages, used + 14);
}

TEST(Directory, IdsAreNeverUsedTwice) {
    Store store;
    ASSERT_EQ(store.Put(WTEXT("\\a")), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\b")), kOk);
    ASSERT_EQ(store.Delete(WTEXT("\\b")), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\b")), kOk);
    EXPECT_EQ(store.Put(WTEXT("\\no\\c")), kParentMissing);
    FileHandle* file = nullptr;
    ASSERT_EQ(store.OpenHandle(WTEXT("\\b"), &file), kOk);
    uint32_t id = 0;
    EXPECT_EQ(StorageGetFileId(file, &id), kOk);
    EXPECT_EQ(id, 4u);
    StorageCloseFile(file);
    EXPECT_EQ(store.ReadSound().At(u"\\b")->fileId, 4u);
}

TEST(Directory, DeletesOnlyWhatIsEmpty) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d")), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\d\\f")), kOk);
    EXPECT_EQ(store.Delete(WTEXT("\\d")), kNotEmpty);
    uint8_t empty = 9;
    EXPECT_EQ(StorageIsDirectoryEmpty(store, WTEXT("\\d"), &empty), kOk);
    EXPECT_EQ(empty, 0);
    EXPECT_EQ(StorageIsDirectoryEmpty(store, WTEXT("\\d\\f"), &empty), kOk);
    EXPECT_EQ(empty, 1);  // a file holds nothing
    EXPECT_EQ(StorageIsDirectoryEmpty(store, WTEXT("\\none"), &empty), kNotFound);
    EXPECT_EQ(empty, 0);
    ASSERT_EQ(store.Delete(WTEXT("\\d\\f")), kOk);
    EXPECT_EQ(StorageDeleteDirectory(store, WTEXT("\\d")), kOk);
    EXPECT_EQ(store.Delete(WTEXT("\\d")), kNotFound);
    store.ReadSound();
}

// No operation tests that a parent is a directory.
TEST(Directory, AFileCanHaveChildrenAndGoesWithThem) {
    Store store;
    const uint32_t used = store.ReadSound().usedPages;
    ASSERT_EQ(store.Put(WTEXT("\\file"), "body"), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\file\\child"), std::string(3000, 'c')), kOk);
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\file\\dir")), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\file\\dir\\") + Repeat('n', 500)), kOk);
    store.Reopen();
    EXPECT_EQ(store.Text(WTEXT("\\file")), "body");
    EXPECT_EQ(store.Text(WTEXT("\\file\\child")), std::string(3000, 'c'));
    FileHandle* file = nullptr;
    ASSERT_EQ(store.OpenHandle(WTEXT("\\file\\child"), &file), kOk);
    EXPECT_EQ(store.Delete(WTEXT("\\file")), kSharing);
    ASSERT_EQ(StorageCloseFile(file), kOk);
    ASSERT_EQ(store.Delete(WTEXT("\\file")), kOk);
    EXPECT_FALSE(store.Exists(WTEXT("\\file")));
    EXPECT_EQ(store.ReadSound().usedPages, used + 1);  // the root's EntryPage stays
}

// A value that fills the HeaderPage leaves no room for the record of the directory.
TEST(Directory, AFullHeaderPageGetsASuccessor) {
    for (const size_t size : {300u, 380u, 400u, 416u}) {
        Store store;
        ASSERT_EQ(store.Put(WTEXT("\\f"), std::string(size, 'v')), kOk);
        ASSERT_EQ(store.Put(WTEXT("\\f\\child"), "c"), kOk);
        EXPECT_EQ(store.Text(WTEXT("\\f")), std::string(size, 'v'));
        store.ReadSound();
        EXPECT_EQ(store.Text(WTEXT("\\f")), std::string(size, 'v'));
        EXPECT_EQ(store.Text(WTEXT("\\f\\child")), "c");
        ASSERT_EQ(store.Put(WTEXT("\\f"), std::string(size + 200, 'w')), kOk);
        EXPECT_EQ(store.Text(WTEXT("\\f")), std::string(size + 200, 'w'));
        ASSERT_EQ(store.Delete(WTEXT("\\f")), kOk);
        store.ReadSound();
    }
}

TEST(Directory, CreateFileAnswersForWhatExists) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d")), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\f"), "text"), kOk);
    FileHandle* file = reinterpret_cast<FileHandle*>(1);
    EXPECT_EQ(store.CreateHandle(WTEXT("\\f"), &file), kExists);
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(store.Text(WTEXT("\\f")), "text");
    EXPECT_EQ(store.CreateHandle(WTEXT("\\d"), &file, true), kExists);
    EXPECT_EQ(store.MakeDirectory(WTEXT("\\F")), kExists);
    EXPECT_EQ(store.CreateHandle(WTEXT("\\f"), &file, true, true, false), kAccess);
    EXPECT_EQ(store.Text(WTEXT("\\f")), "text");
    ASSERT_EQ(store.CreateHandle(WTEXT("\\F"), &file, true, true), kOk);
    ASSERT_EQ(StorageCloseFile(file), kOk);
    EXPECT_EQ(store.Text(WTEXT("\\f")), "");
    EXPECT_EQ(store.ReadSound().At(u"\\f")->size, 0u);
}

TEST(Directory, ManyNamesKeepTheirOrder) {
    Store store;
    std::vector<WString> names;
    for (int i = 0; i < 2000; ++i) names.push_back(Store::Number(i * 7919 % 2000));
    for (const WString& name : names) ASSERT_EQ(store.Put(WTEXT("\\") + name), kOk);
    for (int i = 0; i < 2000; i += 3) ASSERT_EQ(store.Delete(WTEXT("\\") + names[i]), kOk);
    for (int i = 0; i < 2000; i += 6) ASSERT_EQ(store.Put(WTEXT("\\") + names[i]), kOk);
    for (int round = 0; round < 2; ++round) {
        const auto listed = store.List(WTEXT("\\*"));
        ASSERT_EQ(listed.size(), 2000u - 667 + 334);
        EXPECT_TRUE(std::is_sorted(listed.begin(), listed.end()));
        store.ReadSound();
    }
}

TEST(Directory, DeepTreesAreMadeFoundAndTakenDown) {
    Store store;
    WString path;
    for (int i = 0; i < 600; ++i) {
        path += WTEXT("\\k");
        ASSERT_EQ(store.MakeDirectory(path), kOk) << i;
    }
    store.Reopen();
    EXPECT_EQ(store.Attributes(path), kAttrDirectory);
    ASSERT_EQ(store.Put(path + WTEXT("\\v"), "deep"), kOk);
    EXPECT_EQ(store.Text(path + WTEXT("\\v")), "deep");
    ASSERT_EQ(store.Delete(path + WTEXT("\\v")), kOk);
    for (; !path.empty(); path.resize(path.size() - 2)) ASSERT_EQ(store.Delete(path), kOk);
    EXPECT_TRUE(store.ReadSound().root.children.empty());
}

// A file's children go with it however deep they reach.
TEST(Directory, DeletesADeepTreeBelowAFile) {
    Store store;
    const uint32_t used = store.ReadSound().usedPages;
    ASSERT_EQ(store.Put(WTEXT("\\f")), kOk);
    WString path = WTEXT("\\f");
    for (int i = 0; i < 3000; ++i) {
        path += WTEXT("\\k");
        ASSERT_EQ(store.MakeDirectory(path), kOk);
    }
    store.Reopen();
    ASSERT_EQ(store.Delete(WTEXT("\\f")), kOk);
    EXPECT_EQ(store.ReadSound().usedPages, used + 1);
}

TEST(Directory, TimesAreKept) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d")), kOk);
    double created = 0, modified = 0, accessed = 0;
    ASSERT_EQ(StorageGetFileTimes(store, WTEXT("\\d"), &created, &modified, &accessed), kOk);
    EXPECT_GT(created, 40000);
    EXPECT_EQ(created, accessed);
    ASSERT_EQ(StorageGetFileTimes(store, WTEXT("\\d"), nullptr, nullptr, &accessed), kOk);
    created = 1;
    EXPECT_EQ(StorageGetFileTimes(store, WTEXT("\\e"), &created, nullptr, nullptr), kNotFound);
    EXPECT_EQ(created, 0);
}

}  // namespace tests
