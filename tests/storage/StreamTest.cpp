// SPDX-License-Identifier: MIT
// Where the bytes of a stream go: into the record, into pages, into pages with an index; coded
// blocks; and what is said of streams that lie.
#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <sstream>

#include "storage/namespace/Stream.h"
#include "tests/container/Edit.h"
#include "tests/container/EngineStore.h"
#include "tests/container/Shapes.h"

namespace {

using namespace support::container;
using storage::kBadBlock;
using storage::kCorrupt;
using storage::kOk;
using support::Bytes;

constexpr uint32_t kPayload = 512 - 32;
const std::u16string kFile = u"\\v";

Bytes First(const Bytes& bytes, size_t count) {
    return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
}

TEST(Stream, StandsInTheRecordRoundedTo32UntilThePageIsFull) {
    const struct {
        uint32_t bytes, record;
        bool out;
    } cases[] = {{0, 12, false},  {1, 44, false},    {31, 44, false},   {32, 44, false},
                 {33, 76, false}, {300, 332, false}, {416, 428, false}, {417, 12, true}};
    for (const auto& one : cases) {
        EngineStore store(512);
        ASSERT_EQ(store.Put(kFile, Pattern(one.bytes)), kOk);
        const Reading reading = store.ReadSound();
        Bytes file = store.FileBytes();
        const uint8_t* record =
            RecordIn(file.data() + size_t{reading.At(kFile)->headerPage} * 512, DataRec);
        EXPECT_EQ(Get16(record, 2), one.record) << one.bytes;
        EXPECT_EQ(Get32(record, 8) != 0, one.out) << one.bytes;
        EXPECT_EQ(store.Body(kFile), Pattern(one.bytes));
    }
}

TEST(Stream, HasAnIndexFromThe17thPageUntilBelowTheEighth) {
    const struct {
        uint32_t pageSize, pages, step;
        std::vector<std::pair<uint32_t, uint32_t>> cuts;  // to pages, and their index pages
    } cases[] = {
        {512, 17, 17, {{17, 1}, {8, 1}, {7, 0}}},
        {512, 17, 1, {{17, 1}, {8, 1}, {7, 0}}},
        {256, 173, 173, {{169, 4}, {168, 3}, {112, 2}, {57, 2}, {56, 1}, {9, 1}}},
    };
    for (const auto& one : cases) {
        EngineStore store(one.pageSize);
        const uint32_t payload = one.pageSize - 32, entries = payload / 4;
        const Bytes bytes = Pattern(one.pages * payload);
        ASSERT_EQ(store.Put(kFile, {}), kOk);
        {
            EngineFile file(store, kFile);
            for (uint32_t pages = one.step; pages <= one.pages; pages += one.step) {
                const auto at = bytes.begin() + (pages - one.step) * payload;
                ASSERT_EQ(file.Write(Bytes(at, at + one.step * payload)), kOk);
                EXPECT_EQ(file.Object()->pageList.Count(), pages);
                EXPECT_EQ(file.Object()->pageListPages.Count(),
                          pages > 16 ? (pages + entries - 1) / entries : 0);
            }
        }
        for (const auto& [pages, indexes] : one.cuts) {
            const uint32_t size = pages * payload - 1;
            {
                EngineFile file(store, kFile);
                ASSERT_EQ(file.SetSize(size), kOk);
                EXPECT_EQ(file.Object()->pageListPages.Count(), indexes) << pages;
            }
            EXPECT_EQ(store.ReadSound().At(kFile)->body, First(bytes, size));
        }
    }
}

// What looks behind the end makes no page; a stream end on a page end is kept as one more.
TEST(Stream, EndsOnAPageEndWithoutAPageMore) {
    for (const uint32_t pageSize : {256u, 512u, 65536u}) {
        EngineStore store(pageSize);
        Bytes bytes = Pattern(2 * (pageSize - 32)), read;
        ASSERT_EQ(store.Put(kFile, bytes), kOk);
        ASSERT_EQ(store.Reopen(), kOk);
        EngineFile file(store, kFile);
        ASSERT_EQ(file.Seek(0, 2), kOk);
        EXPECT_EQ(file.Read(1, &read), storage::kEndOfData);
        ASSERT_EQ(file.Write({7}), kOk);
        EXPECT_EQ(file.Object()->pageList.Count(), 3u);
        storage::FileObject* object = file.Object();
        const uint64_t size = bytes.size();
        const struct {
            uint64_t end, streamEnd, size;
            uint32_t pages;
        } ends[] = {{size, size + 1, size + 1, 3}, {size - 1, size - 1, size + 1, 2}, {0, 0, 0, 0}};
        for (const auto& one : ends) {
            EXPECT_EQ(
                storage::SetStreamEnd(object, one.end, &file.Handle()->block, object->transaction),
                kOk);
            EXPECT_EQ(object->streamEnd, one.streamEnd);
            EXPECT_EQ(object->size, one.size);
            EXPECT_EQ(object->pageList.Count(), one.pages);
        }
    }
}

TEST(Stream, ReadsAsZerosPastWhatIsStored) {
    EngineStore store(512);
    Bytes expected = {1, 2, 3}, read;
    ASSERT_EQ(store.Put(kFile, expected), kOk);
    expected.resize(1000);
    {
        EngineFile file(store, kFile);
        ASSERT_EQ(file.SetSize(1000), kOk);
        EXPECT_EQ(file.Read(5000, &read), kOk);
        EXPECT_EQ(read, expected);
        EXPECT_EQ(file.Object()->pageList.Count(), 0u);
        file.SeekFar(700);  // and makes nothing when it begins there
        EXPECT_EQ(file.Read(10, &read), kOk);
        EXPECT_EQ(file.Object()->streamEnd, 3u);
    }
    ASSERT_EQ(store.Close(), kOk);
    EXPECT_EQ(ReadContainer(store.FileBytes()).At(kFile)->body, expected);
    ASSERT_EQ(store.Reopen(), kOk);
    EXPECT_EQ(store.Body(kFile), expected);
    EngineFile file(store, kFile);
    for (const uint64_t position :
         {UINT64_MAX, UINT64_MAX - 5, uint64_t{1} << 63, (uint64_t{1} << 32) * 480}) {
        file.SeekFar(position);
        EXPECT_EQ(file.Write({1, 2, 3}), storage::kFull);
        EXPECT_EQ(file.Read(1, &read), storage::kEndOfData);
    }
    ASSERT_EQ(file.SetSize(UINT64_MAX), kOk);
    for (const uint64_t position : {uint64_t{1} << 40, UINT64_MAX - 5}) {
        file.SeekFar(position);
        EXPECT_EQ(file.Read(100, &read), kOk);
        EXPECT_EQ(read, Bytes(std::min<uint64_t>(100, UINT64_MAX - position)));
    }
    EXPECT_EQ(file.Object()->pageList.Count(), 0u);
}

TEST(Stream, RefusesWhatIsPastTheLimitOfPages) {
    for (const uint32_t limit : {3u, 4u, 5u, 20u}) {
        Form form;
        form.maxPages = limit;
        EngineStore store(Builder(form, Tree("")).Finish());
        storage::Status status = kOk;
        uint32_t made = 0;
        while (status == kOk) status = store.Put(Numbered(u"\\f", made++), Pattern(20));
        EXPECT_EQ(status, storage::kFull) << limit;
        EXPECT_EQ(made - 1, limit == 20 ? 14u : limit - 3 > 1 ? 1u : 0u) << limit;
        EXPECT_EQ(store.ReadSound().root.children.size(), made - 1);
        EXPECT_LE(store.FileBytes().size(), limit * 512);
        if (limit != 20) continue;
        ASSERT_EQ(store.Delete(u"\\f3"), kOk);
        EXPECT_EQ(store.Put(u"\\big", Pattern(20000)), storage::kFull);
        EXPECT_EQ(store.Body(u"\\f1"), Pattern(20));
        EXPECT_EQ(store.Delete(u"\\big"), kOk);
        EXPECT_EQ(store.ReadSound().root.children.size(), 13u);
    }
}

// A coded block shrinks and grows within its place among the others.
TEST(Stream, CodedBlocksTakeThePagesTheyNeed) {
    Bytes expected(kPayload * 4 * 5, 7);
    Item tree = Tree("v ' pages method=4 block=4");
    tree.children[0].body = expected;
    EngineStore store(Builder({}, tree).Finish());
    const std::pair<Bytes, size_t> writes[] = {
        {{}, 5}, {Pattern(1920), 8}, {Bytes(1900, 3), 5}, {Pattern(700), 6}, {Bytes(1920, 9), 5}};
    for (const auto& [bytes, pages] : writes) {
        EngineFile file(store, kFile);
        Bytes read;
        file.SeekFar(2 * 1920);
        ASSERT_EQ(file.Write(bytes), kOk);
        std::copy(bytes.begin(), bytes.end(), expected.begin() + 2 * 1920);
        file.SeekFar(0);
        EXPECT_EQ(file.Read(20000, &read), kOk);
        EXPECT_EQ(read, expected);
        size_t count = 0;
        for (const uint32_t page : file.Object()->pageList) count += page != 0;
        EXPECT_EQ(count, pages);
        EXPECT_EQ(file.Close(), kOk);
        EXPECT_EQ(store.ReadSound().At(kFile)->body, expected);
    }
}

TEST(Stream, OfMethodThreeNeedsItsFunctions) {
    Builder builder({}, Tree("v ^100 method=3"));
    // The record of the stream: a coded block of 32 bytes that stands for 100.
    uint8_t* record = builder.Record(kFile, DataRec);
    Put32(record, 4, 32);
    Put32(record, 12, 100);
    EngineStore store(builder.Finish());
    Bytes bytes;
    EXPECT_EQ(store.Get(kFile, &bytes), kBadBlock);
    storage::StorageExpandFunction = [](const uint8_t* source, uint32_t length, uint8_t* to,
                                        uint32_t* room) {
        if (*room < 100 || length < 32) return 1;
        std::memset(to, source[0], 100);
        *room = 100;
        return 0;
    };
    EXPECT_EQ(store.Get(kFile, &bytes), kOk);
    EXPECT_EQ(bytes, Bytes(100, 0xFF));
    storage::StorageExpandFunction = nullptr;
}

// What is said of a file that lies, and what may be done with it afterwards: the others stay whole.
TEST(Stream, TellsLies) {
    const std::vector<contract::Section> sections = SectionsIn("storage/lies.txt");
    const Builder sound({256}, Tree(sections[0], 256));
    ASSERT_GE(sound.At(u"\\long").indexPages.size(), 2u);
    for (const contract::Section& section : std::span(sections).subspan(1))
        for (const auto& [number, line] : section.lines) {
            SCOPED_TRACE(line);
            std::istringstream in(line);
            std::string name, edits;
            storage::Status status = kOk;
            std::getline(in >> name >> status, edits);
            const std::u16string path = u"\\" + ToUnits(name);
            Builder builder = sound;
            Edit(&builder, edits);
            EngineStore store(builder.Finish());
            const size_t size = store.FileBytes().size();
            Bytes bytes;
            EXPECT_EQ(store.Get(path, &bytes, 1 << 16), status);
            {
                EngineFile file(store, path);
                if (file.Opened() == kOk) {
                    file.SeekFar(bytes.size() / 2);
                    file.Write(Bytes(3000, 5));
                    file.SeekFar(1u << 30);
                    file.Read(10, &bytes);
                }
            }
            store.Put(path, Bytes(100, 6));
            const storage::Status deleted = store.Delete(path);
            uint8_t corrupted = 0;
            EXPECT_EQ(storage::StorageIsCorrupted(store, &corrupted), kOk);
            if (path == u"\\small") {
                EXPECT_EQ(deleted, kCorrupt);
                EXPECT_EQ(corrupted, 1) << "by one who has the lock";
            }
            EXPECT_EQ(store.Body(u"\\other"), Pattern(1000));
            EXPECT_EQ(store.Put(u"\\new", Pattern(9)), kOk);
            store.Close();
            EXPECT_LT(store.FileBytes().size(), size * 4);
        }
}

}  // namespace
