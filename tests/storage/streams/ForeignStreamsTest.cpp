// Streams that somebody else wrote: coded blocks, holes, other orders of bytes, and lies.
#include <functional>
#include <random>

#include "tests/container/Shapes.h"
#include "tests/storage/streams/StreamHarness.h"

namespace {

using streams::File;
using streams::Store;
using support::Bytes;
namespace container = support::container;
using container::Builder;
using container::Item;

std::string Narrow(const std::u16string& text) {
    return std::string(text.begin(), text.end());
}

// Every file and link target path below `item`.
void Paths(const Item& item, const std::u16string& path, std::vector<std::u16string>* paths) {
    for (const Item& child : item.children) {
        const std::u16string at = path + u"\\" + child.name;
        if (child.kind == container::ItemKind::File) paths->push_back(at);
        if (child.kind == container::ItemKind::Directory) Paths(child, at, paths);
    }
}

Bytes BodyOf(const container::Reading& reading, const std::u16string& path) {
    const container::Found* found = reading.At(path);
    return found == nullptr ? Bytes{0xBA, 0xD0} : found->body;
}

TEST(ForeignStreams, AllFormsReadAndCanBeChanged) {
    for (const uint32_t pageSize : {256u, 512u, 4096u}) {
        for (const bool foreign : {false, true}) {
            container::Form form;
            form.pageSize = pageSize;
            form.foreign = foreign;
            const Item tree = container::RichTree(pageSize);
            const Bytes bytes = Builder(form, tree).Finish();
            const container::Reading before = container::ReadContainer(bytes);
            ASSERT_TRUE(before.Sound()) << before.Report();
            std::vector<std::u16string> paths;
            Paths(tree, u"", &paths);
            ASSERT_GT(paths.size(), 20u);

            Store store(bytes, pageSize);
            for (const std::u16string& path : paths)
                EXPECT_EQ(store.Get(Narrow(path).c_str()), BodyOf(before, path))
                    << Narrow(path) << " " << pageSize;
            std::map<std::u16string, Bytes> expected;
            for (const std::u16string& path : paths) {
                Bytes body = BodyOf(before, path);
                File file = store.OpenFile(Narrow(path).c_str(), true);
                const size_t at = body.size() / 2, end = at + 3;
                file.Seek(at);
                file.Write({1, 2, 3});
                body.resize(std::max(body.size(), end));
                std::copy_n(Bytes{1, 2, 3}.begin(), 3,
                            body.begin() + static_cast<std::ptrdiff_t>(at));
                file.Seek(body.size());
                const Bytes runs = container::Runs(pageSize * 3);
                file.Write(runs);
                body.insert(body.end(), runs.begin(), runs.end());
                EXPECT_EQ(file.Close(), 0) << Narrow(path);
                expected[path] = body;
            }
            const container::Reading after = store.Closed();
            EXPECT_TRUE(after.Sound()) << pageSize << foreign << "\n" << after.Report();
            store.Open();
            for (const auto& [path, body] : expected) {
                ASSERT_NE(after.At(path), nullptr);
                EXPECT_EQ(after.At(path)->body, body) << Narrow(path) << " " << pageSize;
                EXPECT_EQ(store.Get(Narrow(path).c_str()), body) << Narrow(path);
                EXPECT_EQ(store.Delete(Narrow(path).c_str()), 0) << Narrow(path);
            }
            const container::Reading emptied = store.Closed();
            EXPECT_TRUE(emptied.Sound()) << emptied.Report();
        }
    }
}

// A coded block shrinks and grows within its place among the others.
TEST(ForeignStreams, CodedBlocksTakeThePagesTheyNeed) {
    container::Form form;
    const Bytes flat(480 * 4 * 5, 7);
    const Item tree = container::Directory(
        u"", {container::Coded(container::Paged(container::File(u"v", flat)), 4)});
    Store store(Builder(form, tree).Finish(), 512);
    File file = store.OpenFile("v", true);
    EXPECT_EQ(file.Read(20000), flat);
    EXPECT_EQ(file.Object()->pageList.Count(), 17u);
    const auto pages = [&] {
        uint32_t count = 0;
        for (const uint32_t number : file.Object()->pageList) count += number != 0;
        return count;
    };
    EXPECT_EQ(pages(), 5u);
    Bytes expected = flat;
    std::mt19937 random(3);
    for (int round = 0; round < 40; ++round) {
        const size_t block = random() % 5, length = 1 + random() % 1900;
        const Bytes bytes = round % 2 == 0 ? container::Pattern(length, random())
                                           : Bytes(length, static_cast<uint8_t>(random()));
        file.Seek(block * 1920);
        file.Write(bytes);
        std::copy(bytes.begin(), bytes.end(),
                  expected.begin() + static_cast<std::ptrdiff_t>(block * 1920));
        if (round % 8 != 7) continue;
        file.Close();
        const container::Reading reading = store.Closed();
        ASSERT_TRUE(reading.Sound()) << reading.Report();
        ASSERT_EQ(reading.At(u"\\v")->body, expected);
        store.Open();
        file = store.OpenFile("v", true);
        EXPECT_EQ(file.Read(20000), expected);
        EXPECT_GT(pages(), 5u);
    }
}

TEST(ForeignStreams, MethodThreeNeedsItsFunctions) {
    container::Form form;
    Item coded = container::File(u"v", Bytes(100, 7));
    coded.method = 3;
    Item tree = container::Directory(u"", {coded});
    Builder builder(form, tree);
    // The record of the stream: a coded block of 32 bytes that stands for 100.
    uint8_t* page = builder.Page(builder.At(u"\\v").headerPage);
    for (uint32_t at = 36; at < container::Get16(page, 32); at += container::Get16(page, at + 2))
        if (container::Get16(page, at) == container::DataRec) {
            container::Put32(page, at + 4, 32);
            container::Put32(page, at + 12, 100);
        }
    Store store(builder.Finish(), 512);
    Bytes bytes;
    EXPECT_EQ(store.OpenFile("v").TryRead(100, &bytes), storage::kBadBlock);
    storage::StorageExpandFunction = [](const uint8_t* source, uint32_t length, uint8_t* to,
                                        uint32_t* room) {
        if (*room < 100 || length < 32) return 1;
        std::memset(to, source[0], 100);
        *room = 100;
        return 0;
    };
    EXPECT_EQ(store.OpenFile("v").TryRead(100, &bytes), 0);
    EXPECT_EQ(bytes, Bytes(100, 7));
    storage::StorageExpandFunction = nullptr;
}

// Reads, writes, empties and deletes; what each says is its own affair, but it must say something.
void Exercise(Store& store, const char* name) {
    for (const bool write : {false, true}) {
        storage::FileHandle* handle = nullptr;
        if (store.TryOpenFile(name, write, &handle) != 0) continue;
        File file(handle);
        Bytes bytes;
        file.TryRead(1u << 16, &bytes);
        file.Seek(bytes.size() / 2);
        if (write) file.TryWrite(Bytes(3000, 5));
        file.Seek(1u << 30);
        file.TryRead(10, &bytes);
        file.Close();
    }
    storage::FileHandle* handle = nullptr;
    if (store.TryCreate(name, true, &handle) == 0) File(handle).TryWrite(Bytes(100, 6));
    store.Delete(name);
}

class Lies : public testing::Test {
  protected:
    static constexpr uint32_t kPageSize = 256, kPayload = 224;
    using Change = std::function<void(Builder&, const container::Place&)>;

    using Status = storage::Status;
    static container::Form SmallForm(bool foreign = false) {
        container::Form form;
        form.pageSize = kPageSize;
        form.foreign = foreign;
        return form;
    }
    static Item Tree() {
        using container::Coded;
        using container::Paged;
        using container::Pattern;
        return container::Directory(
            u"", {Paged(container::File(u"paged", Pattern(kPayload * 4))),
                  container::File(u"long", Pattern(kPayload * 70)),
                  Coded(container::File(u"inline", Bytes(90, 0xFF)), 1),
                  Coded(Paged(container::File(u"coded", container::Runs(kPayload * 9 + 5))), 4),
                  container::File(u"other", Pattern(1000))});
    }
    // Status of reading all of a file after the change.
    void Check(const char* name, Status expected, const Change& change) {
        Builder builder(SmallForm(), Tree());
        const std::string text = std::string("\\") + name;
        change(builder, builder.At(std::u16string(text.begin(), text.end())));
        Store store(builder.Finish(), kPageSize);
        const size_t size = store.FileBytes().size();
        Bytes bytes;
        storage::FileHandle* handle = nullptr;
        Status status = store.TryOpenFile(name, false, &handle);
        if (status == 0) {
            File file(handle);
            status = file.TryRead(1u << 16, &bytes);
            file.Close();
        }
        EXPECT_EQ(status, expected);
        Exercise(store, name);
        EXPECT_EQ(store.Get("other"), container::Pattern(1000));
        store.Close();
        EXPECT_LT(store.FileBytes().size(), size * 4);
    }
    static uint8_t* RecordAt(Builder& builder, const container::Place& place, uint16_t type) {
        uint8_t* page = builder.Page(place.headerPage);
        for (uint32_t at = 36; at < container::Get16(page, 32);
             at += container::Get16(page, at + 2))
            if (container::Get16(page, at) == type) return page + at;
        ADD_FAILURE() << "no record " << type;
        return page + 36;
    }
};

using container::Place;
using container::Put16;
using container::Put32;
using container::Put64;

TEST_F(Lies, ChainsAndLevels) {
    using storage::kCorrupt;
    Check("paged", kCorrupt, [](Builder& b, const Place& p) {  // a circle
        Put32(b.Page(p.streamPages[3]), 16, p.streamPages[1]);
    });
    Check("paged", kCorrupt, [](Builder& b, const Place& p) {  // a circle of one
        Put32(b.Page(p.streamPages[0]), 16, p.streamPages[0]);
    });
    Check("paged", kCorrupt, [](Builder& b, const Place& p) {  // a list of 16 GiB
        Put32(b.Page(p.streamPages[2]), 24, 0xFFFFFFFF);
    });
    Check("paged", kCorrupt, [](Builder& b, const Place& p) {  // a jump
        Put32(b.Page(p.streamPages[2]), 24, 3);
        Put32(b.Page(p.streamPages[3]), 24, 4);
    });
    Check("paged", kCorrupt, [](Builder& b, const Place& p) {  // no first page
        for (uint32_t i = 0; i < 4; ++i) Put32(b.Page(p.streamPages[i]), 24, i + 1);
    });
    Check("paged", kCorrupt, [](Builder& b, const Place& p) {  // another's page
        Put32(b.Page(p.streamPages[1]), 16, b.At(u"\\other").streamPages[0]);
    });
    Check("paged", kCorrupt, [](Builder& b, const Place& p) {  // past the end
        Put32(b.Page(p.streamPages[1]), 16, 0xFFFFFFF0);
    });
    Check("paged", kCorrupt, [](Builder& b, const Place& p) {  // more than a page in a page
        Put16(b.Page(p.streamPages[1]), 30, kPayload + 1);
    });
}

TEST_F(Lies, Indexes) {
    using storage::kCorrupt;
    ASSERT_GE(Builder(SmallForm(), Tree()).At(u"\\long").indexPages.size(), 2u);
    Check("long", kCorrupt, [](Builder& b, const Place& p) {  // a circle
        Put32(b.Page(p.indexPages[1]), 16, p.indexPages[0]);
    });
    Check("long", kCorrupt, [](Builder& b, const Place& p) {  // an entry past the end
        Put32(b.Page(p.indexPages[0]), 32 + 4 * 5, 0x10000000);
    });
    Check("long", kCorrupt, [](Builder& b, const Place& p) {  // the same page twice
        Put32(b.Page(p.indexPages[0]), 32 + 4 * 5, p.streamPages[4]);
    });
    Check("long", kCorrupt, [](Builder& b, const Place& p) {  // a hole for a whole block
        Put32(b.Page(p.indexPages[0]), 32 + 4 * 5, 0);
    });
    Check("long", kCorrupt, [](Builder& b, const Place& p) {  // the index is no index
        Put32(RecordAt(b, p, container::PageListRec), 8, p.streamPages[0]);
    });
    Check("long", 0, [](Builder& b, const Place& p) {  // no index after all: the chain serves
        Put32(RecordAt(b, p, container::PageListRec), 8, 0);
    });
}

TEST_F(Lies, SettingsSizesAndCodes) {
    using storage::kBadBlock;
    using storage::kCorrupt;
    Check("coded", kCorrupt, [](Builder& b, const Place& p) {
        Put16(RecordAt(b, p, container::BlockSettings), 20, 0);
    });
    Check("coded", 0, [](Builder& b, const Place& p) {  // everything is one block
        Put16(RecordAt(b, p, container::BlockSettings), 20, 65535);
    });
    Check("coded", kBadBlock, [](Builder& b, const Place& p) {
        Put32(RecordAt(b, p, container::BlockSettings), 12, 17);
    });
    Check("coded", kBadBlock, [](Builder& b, const Place& p) {  // a run without an end
        std::memset(b.Page(p.streamPages[0]) + 32, 0xFF, 5);
    });
    Check("inline", kBadBlock, [](Builder& b, const Place& p) {
        std::memset(RecordAt(b, p, container::DataRec) + 12, 0xFF, 8);
    });
    Check("paged", 0, [](Builder& b, const Place& p) {
        Put64(RecordAt(b, p, container::FileInfo), 40, UINT64_MAX);
    });
    Check("inline", 0, [](Builder& b, const Place& p) {
        Put64(RecordAt(b, p, container::FileInfo), 40, uint64_t{1} << 62);
    });
}

TEST_F(Lies, RandomBytesNeverDoHarm) {
    std::mt19937 random(5);
    for (int round = 0; round < 400; ++round) {
        Builder builder(SmallForm(round % 4 == 0), Tree());
        std::vector<uint32_t> pages;
        for (const char16_t* path : {u"\\paged", u"\\long", u"\\inline", u"\\coded"}) {
            const Place& place = builder.At(path);
            for (const auto* list : {&place.headerPages, &place.streamPages, &place.indexPages})
                pages.insert(pages.end(), list->begin(), list->end());
        }
        const int changes = 1 + static_cast<int>(random() % 6);
        for (int i = 0; i < changes; ++i) {
            uint8_t* page = builder.Page(pages[random() % pages.size()]);
            const uint32_t at = random() % (random() % 4 == 0 ? kPageSize - 4 : 132);
            switch (random() % 3) {
                case 0:
                    page[at] ^= static_cast<uint8_t>(1 + random() % 255);
                    break;
                case 1:
                    Put32(page, at & ~3u, random() % (builder.PageCount() + 4));
                    break;
                default:
                    Put16(page, at & ~1u, random());
                    break;
            }
        }
        Store store(builder.Finish(), kPageSize);
        if (store.Context() == nullptr) continue;
        const size_t size = store.FileBytes().size();
        for (const char* name : {"paged", "long", "inline", "coded"}) Exercise(store, name);
        store.Close();
        EXPECT_LT(store.FileBytes().size(), size * 8);
    }
}

}  // namespace
