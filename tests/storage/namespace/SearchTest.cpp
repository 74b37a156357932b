#include "tests/storage/namespace/Store.h"

namespace tests {

namespace {

void FillWithLetters(Store& store) {
    for (const WChar* path : {WTEXT("\\d\\e"), WTEXT("\\d\\A"), WTEXT("\\d\\c"), WTEXT("\\d\\G")})
        ASSERT_EQ(store.Put(path, "1"), kOk);
}

WString FoundName(const StorageSearchStruct& record) {
    return record.name == nullptr ? WString() : WString(record.name);
}

}  // namespace

TEST(Search, ListsInOrderByMaskAndPattern) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d")), kOk);
    FillWithLetters(store);
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d\\b")), kOk);
    EXPECT_EQ(store.List(WTEXT("\\d\\*")),
              Names({WTEXT("A"), WTEXT("b"), WTEXT("c"), WTEXT("e"), WTEXT("G")}));
    EXPECT_EQ(store.List(WTEXT("\\d\\*"), kAttrDirectory), Names({WTEXT("b")}));
    EXPECT_EQ(store.List(WTEXT("\\d\\?"), kAttrFile),
              Names({WTEXT("A"), WTEXT("c"), WTEXT("e"), WTEXT("G")}));
    EXPECT_EQ(store.List(WTEXT("\\d\\*"), 0), Names({}));
    EXPECT_EQ(store.List(WTEXT("\\d\\g")), Names({WTEXT("G")}));
    EXPECT_EQ(store.List(WTEXT("\\d\\g"), kAttrDirectory), Names({}));
    EXPECT_EQ(store.List(WTEXT("\\d\\x")), Names({}));
    EXPECT_EQ(store.List(WTEXT("\\x\\*")), Names({WTEXT("status -9")}));
    EXPECT_EQ(store.List(WTEXT("d\\c"), 3, kFindFullName), Names({WTEXT("\\d\\c")}));
    EXPECT_EQ(store.List(WTEXT("/d/G*"), 3, kFindFullName), Names({WTEXT("/d/G")}));
}

TEST(Search, DotsComeFirstButNotInTheRoot) {
    Store store;
    EXPECT_EQ(store.List(WTEXT("\\*"), 3, kFindWithDots), Names({}));
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d")), kOk);
    EXPECT_EQ(store.List(WTEXT("\\d\\*")), Names({}));
    EXPECT_EQ(store.List(WTEXT("\\d\\*"), 3, kFindWithDots), Names({WTEXT("."), WTEXT("..")}));
    EXPECT_EQ(store.List(WTEXT("\\d\\*"), kAttrFile, kFindWithDots), Names({}));
    ASSERT_EQ(store.Put(WTEXT("\\d\\-")), kOk);
    EXPECT_EQ(store.List(WTEXT("\\d\\*"), 3, kFindWithDots | kFindTimes),
              Names({WTEXT("."), WTEXT(".."), WTEXT("-")}));
    EXPECT_EQ(store.List(WTEXT("\\d\\.?"), 3, kFindWithDots), Names({WTEXT("..")}));
    EXPECT_EQ(store.List(WTEXT("\\*"), 3, kFindWithDots), Names({WTEXT("d")}));
}

// Between two calls entries come and go; the search goes on behind the name it stood at.
TEST(Search, SurvivesChangesOfTheDirectory) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d")), kOk);
    FillWithLetters(store);
    StorageSearchStruct record{};
    ASSERT_EQ(StorageFindFirst(store, &record, WTEXT("\\d\\*"), 3, 0), kOk);
    EXPECT_EQ(FoundName(record), WTEXT("A"));
    ASSERT_EQ(store.Delete(WTEXT("\\d\\a")), kOk);  // what was just returned
    ASSERT_EQ(store.Put(WTEXT("\\d\\b")), kOk);     // before the place
    ASSERT_EQ(StorageFindNext(store, &record), kOk);
    EXPECT_EQ(FoundName(record), WTEXT("c"));
    ASSERT_EQ(store.Delete(WTEXT("\\d\\e")), kOk);  // at the place
    ASSERT_EQ(store.Put(WTEXT("\\d\\f")), kOk);     // behind it
    ASSERT_EQ(StorageFindNext(store, &record), kOk);
    EXPECT_EQ(FoundName(record), WTEXT("f"));
    ASSERT_EQ(store.Move(WTEXT("\\d\\G"), WTEXT("\\d\\z")), kOk);
    ASSERT_EQ(store.Delete(WTEXT("\\d\\f")), kOk);
    ASSERT_EQ(StorageFindNext(store, &record), kOk);
    EXPECT_EQ(FoundName(record), WTEXT("z"));
    EXPECT_EQ(StorageFindNext(store, &record), kNoMore);
    EXPECT_EQ(record.search, nullptr);
    EXPECT_EQ(record.name, nullptr);
    EXPECT_EQ(StorageFindNext(store, &record), kNoMore);
    EXPECT_EQ(StorageFindClose(store, &record), kOk);
}

TEST(Search, HoldsItsDirectory) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d")), kOk);
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d\\sub")), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\d\\sub\\a")), kOk);
    StorageSearchStruct record{};
    ASSERT_EQ(StorageFindFirst(store, &record, WTEXT("\\d\\sub\\*"), 3, 0), kOk);
    ASSERT_EQ(store.Delete(WTEXT("\\d\\sub\\a")), kOk);
    EXPECT_EQ(store.Delete(WTEXT("\\d\\sub")), kSharing);
    // It moves with it.
    ASSERT_EQ(store.Move(WTEXT("\\d\\sub"), WTEXT("\\moved")), kOk);
    EXPECT_EQ(store.Delete(WTEXT("\\moved")), kSharing);
    EXPECT_EQ(store.Delete(WTEXT("\\d")), kOk);
    EXPECT_EQ(StorageFindNext(store, &record), kNoMore);
    EXPECT_EQ(store.Delete(WTEXT("\\moved")), kOk);
}

TEST(Search, IsGivenUpWithItsStore) {
    StorageSearchStruct first{};
    StorageSearchStruct again{};
    {
        Store store;
        ASSERT_EQ(store.Put(WTEXT("\\a")), kOk);
        ASSERT_EQ(store.Put(WTEXT("\\b")), kOk);
        ASSERT_EQ(StorageFindFirst(store, &first, WTEXT("\\*"), 3, 0), kOk);
        // A record that is used again loses the search it had.
        ASSERT_EQ(StorageFindFirst(store, &again, WTEXT("\\*"), 3, 0), kOk);
        ASSERT_EQ(StorageFindFirst(store, &again, WTEXT("\\*"), 3, 0), kOk);
    }
    EXPECT_EQ(first.search, nullptr);
    EXPECT_EQ(first.name, nullptr);
    EXPECT_EQ(again.search, nullptr);
}

TEST(Search, TellsTimesAndSize) {
    Store store;
    ASSERT_EQ(store.Put(WTEXT("\\f"), "12345"), kOk);
    double created = 0, modified = 0, accessed = 0;
    ASSERT_EQ(StorageGetFileTimes(store, WTEXT("\\f"), &created, &modified, &accessed), kOk);
    for (const int32_t flag : {kFindTimes, kFindSize}) {
        StorageSearchStruct record{};
        ASSERT_EQ(StorageFindFirst(store, &record, WTEXT("\\f"), 1, flag), kOk);
        EXPECT_EQ(record.size, 5u);
        EXPECT_EQ(record.attributes, kAttrFile);
        EXPECT_EQ(record.created, created);
        EXPECT_EQ(record.modified, modified);
        EXPECT_EQ(StorageFindClose(store, &record), kOk);
    }
}

TEST(Search, LeavesHiddenEntriesOut) {
    using support::container::Directory;
    using support::container::File;
    auto hidden = File(u"b");
    hidden.attributes = kAttrHidden;
    Store store(
        support::container::Builder({}, Directory(u"", {File(u"a"), hidden, File(u"c")})).Finish());
    EXPECT_EQ(store.List(WTEXT("\\*")), Names({WTEXT("a"), WTEXT("c")}));
    EXPECT_EQ(store.List(WTEXT("\\b")), Names({}));
    EXPECT_TRUE(store.Exists(WTEXT("\\b")));
}

TEST(Search, CanBeSwitchedOffByTheContainer) {
    support::container::Form form;
    form.findSettings = 1;
    Store store(support::container::Builder(
                    form, support::container::Directory(u"", {support::container::File(u"a")}))
                    .Finish());
    EXPECT_EQ(store.List(WTEXT("\\*")), Names({WTEXT("status -16")}));
    EXPECT_TRUE(store.Exists(WTEXT("\\a")));
}

}  // namespace tests
