// Containers whose directories lie.
#include <random>

#include "tests/storage/namespace/Store.h"

namespace tests {

namespace container = support::container;
using container::Builder;
using container::Directory;
using container::File;
using container::Put32;

namespace {

container::Item Tree() {
    return Directory(
        u"", {Directory(u"a", {Directory(u"b", {Directory(u"c", {File(u"v", Bytes(9, 'v'))})}),
                               File(std::u16string(600, u'n'), Bytes(3000, 'n'))}),
              File(u"f", Bytes(5, 'f')), container::Link(u"l", u"a\\b")});
}

// Everything that a caller can do, with whatever answer.
void TryEverything(Store& store) {
    const WChar* paths[] = {WTEXT("\\a"),
                            WTEXT("\\a\\b"),
                            WTEXT("\\a\\b\\c"),
                            WTEXT("\\a\\b\\c\\v"),
                            WTEXT("\\f"),
                            WTEXT("\\l\\c\\v"),
                            WTEXT("\\a\\b\\c\\a\\b\\c\\a\\b\\c")};
    for (const WChar* path : paths) {
        store.Text(path);
        store.Attributes(path);
        store.List(path + WString(WTEXT("\\*")), 3, kFindTimes | kFindFullName);
    }
    store.List(WTEXT("\\*"));
    store.Text(WTEXT("\\a\\") + Repeat('n', 600));
    for (const WChar* path : paths) {
        store.Put(path + WString(WTEXT("\\new")), std::string(700, 'x'));
        store.MakeDirectory(path + WString(WTEXT("\\dir")) + Repeat('d', 300));
        store.Move(path, path + WString(WTEXT("2")));
        store.Delete(path);
    }
    store.Move(WTEXT("\\a\\") + Repeat('n', 600), WTEXT("\\n"));
    store.Delete(WTEXT("\\n"));
    store.Delete(WTEXT("\\a\\") + Repeat('n', 600));
}

void Copy(Builder& builder, const std::u16string& from, const std::u16string& to) {
    const container::Place& source = builder.At(from);
    const container::Place& target = builder.At(to);
    Put32(builder.Page(target.entryPage), target.entryOffset, source.fileId);
    Put32(builder.Page(target.entryPage), target.entryOffset + 4, source.headerPage);
}

}  // namespace

TEST(Hostile, ADirectoryThatHoldsItselfOrItsParent) {
    for (const char16_t* ancestor : {u"\\a", u"\\a\\b", u"\\a\\b\\c"}) {
        Builder builder({}, Tree());
        Copy(builder, ancestor, u"\\a\\b\\c\\v");
        Store store(builder.Finish());
        EXPECT_EQ(store.AttributesStatus(WTEXT("\\a\\b\\c\\v")), kCorrupt);
        EXPECT_EQ(store.AttributesStatus(WTEXT("\\a\\b\\c\\v\\b\\c\\v")), kCorrupt);
        EXPECT_EQ(store.Delete(WTEXT("\\a\\b\\c\\v")), kCorrupt);
        EXPECT_EQ(store.List(WTEXT("\\a\\b\\c\\*"), 3), Names({WTEXT("v")}));
        EXPECT_EQ(store.Text(WTEXT("\\f")), "fffff");
        TryEverything(store);
    }
}

TEST(Hostile, TwoEntriesOfOneObject) {
    Builder builder({}, Tree());
    Copy(builder, u"\\f", u"\\a\\b\\c\\v");
    Store store(builder.Finish());
    FileHandle* file = nullptr;
    ASSERT_EQ(store.OpenHandle(WTEXT("\\f"), &file, true), kOk);
    EXPECT_EQ(store.AttributesStatus(WTEXT("\\a\\b\\c\\v")), kCorrupt);
    EXPECT_EQ(store.Delete(WTEXT("\\a\\b\\c\\v")), kCorrupt);
    ASSERT_EQ(StorageCloseFile(file), kOk);
    TryEverything(store);
}

TEST(Hostile, ChainsThatEndWhereTheyBegan) {
    const auto ring = [](auto select) {
        Builder builder({}, Tree());
        const std::vector<uint32_t> pages = select(builder);
        Put32(builder.Page(pages.back()), 16, pages.front());
        Store store(builder.Finish());
        TryEverything(store);
        uint8_t corrupted = 0;
        EXPECT_EQ(StorageIsCorrupted(store, &corrupted), kOk);
        EXPECT_EQ(corrupted, 1);
    };
    const std::u16string longName = u"\\a\\" + std::u16string(600, u'n');
    ring([](Builder& b) { return b.At(u"").entryPages; });
    ring([](Builder& b) { return b.At(u"\\a").entryPages; });
    ring([](Builder& b) { return b.At(u"\\a").headerPages; });
    ring([&](Builder& b) { return b.At(longName).namePages; });
    ring([&](Builder& b) { return b.At(longName).streamPages; });
}

TEST(Hostile, ANameOfALyingLength) {
    for (const uint32_t length :
         {0u, 5u, 22u, 23u, 262u, 599u, 601u, 900u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        Builder builder({}, Tree());
        const auto& place = builder.At(u"\\a\\" + std::u16string(600, u'n'));
        Put32(builder.Page(place.entryPage), place.entryOffset + 12, length);
        Store store(builder.Finish());
        TryEverything(store);
        EXPECT_TRUE(store.Exists(WTEXT("\\f")) || store.Exists(WTEXT("\\f2"))) << length;
    }
}

TEST(Hostile, EveryFieldOfAnEntryAndItsPagesTakesEveryKindOfNumber) {
    const Builder intact({}, Tree());
    for (const std::u16string& path : {std::u16string(u"\\a"), std::u16string(u"\\a\\b\\c\\v"),
                                       u"\\a\\" + std::u16string(600, u'n')}) {
        for (const uint32_t field : {0u, 4u, 8u, 16u}) {
            for (const uint32_t value : {0u, 1u, 2u, 5u, 11u, 32u, 0xFFFFu, 0xFFFFFFFFu}) {
                Builder builder = intact;
                const auto& place = builder.At(path);
                Put32(builder.Page(place.entryPage), place.entryOffset + field, value);
                Store store(builder.Finish());
                TryEverything(store);
            }
        }
    }
}

TEST(Hostile, RandomBytesAnywhere) {
    const Builder builder({}, Tree());
    const Bytes intact = builder.Finish();
    std::mt19937 random(20260101);
    for (int round = 0; round < 300; ++round) {
        Bytes file = intact;
        for (int hits = 1 + round % 8; hits > 0; --hits) {
            // The superblock's geometry is for others to test.
            const size_t at = 1024 + random() % (file.size() - 1024);
            file[at] = static_cast<uint8_t>(random() % 4 == 0 ? random() : random() % 64);
        }
        SCOPED_TRACE(round);
        Store store(intact);
        store.Close();
        support::WriteBytes(std::filesystem::path(store.Path()), file);
        if (store.Open() != kOk) continue;
        TryEverything(store);
    }
}

}  // namespace tests
