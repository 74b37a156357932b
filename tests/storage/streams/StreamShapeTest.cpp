// Where the bytes of a stream go: into the record, into pages, into pages with an index.
#include "storage/core/PageIo.h"
#include "tests/storage/streams/StreamHarness.h"

namespace {

using streams::File;
using streams::Pattern;
using streams::Store;
using support::Bytes;
namespace container = support::container;

struct RecordFound {
    uint32_t size = 0, info = 0, link = 0;
};

// A record in the first HeaderPage of an object; size 0 when there is none.
RecordFound RecordOf(const Bytes& file, uint32_t pageSize, uint32_t page, uint16_t type) {
    const uint8_t* bytes = file.data() + size_t{page} * pageSize;
    const uint32_t end = container::Get16(bytes, 32);
    for (uint32_t at = 36; at < end; at += container::Get16(bytes, at + 2))
        if (container::Get16(bytes, at) == type)
            return {container::Get16(bytes, at + 2), container::Get32(bytes, at + 4),
                    container::Get32(bytes, at + 8)};
    return {};
}

RecordFound StoredRecord(Store& store, uint32_t pageSize, uint16_t type) {
    const container::Reading reading = store.Closed();
    EXPECT_TRUE(reading.Sound()) << reading.Report();
    const container::Found* file = reading.At(u"\\v");
    const RecordFound record = RecordOf(store.FileBytes(), pageSize, file->headerPage, type);
    store.Open();
    return record;
}

TEST(StreamShape, SmallStreamsStandInTheRecordRoundedTo32) {
    const struct {
        uint32_t bytes, record;
    } cases[] = {{0, 12}, {1, 44}, {31, 44}, {32, 44}, {33, 76}, {300, 332}};
    for (const auto& one : cases) {
        Store store(512);
        store.Put("v", Pattern(one.bytes));
        const RecordFound record = StoredRecord(store, 512, container::DataRec);
        EXPECT_EQ(record.size, one.record) << one.bytes;
        EXPECT_EQ(record.info, 0u);
        EXPECT_EQ(record.link, 0u);
        EXPECT_EQ(store.Get("v"), Pattern(one.bytes));
    }
}

TEST(StreamShape, AStreamThatOutgrowsTheHeaderPageMovesOutWhole) {
    Store store(512);
    // 512 - 84 - 12 bytes are left behind an empty record.
    store.Put("v", Pattern(416));
    EXPECT_EQ(StoredRecord(store, 512, container::DataRec).link, 0u);
    store.Put("v", Pattern(417));
    const RecordFound record = StoredRecord(store, 512, container::DataRec);
    EXPECT_NE(record.link, 0u);
    EXPECT_EQ(record.size, 12u);
    EXPECT_EQ(store.Get("v"), Pattern(417));
}

TEST(StreamShape, TheIndexComesWithTheSeventeenthPageAndGoesBelowTheEighth) {
    Store store(512);
    const uint32_t payload = store.Payload();
    for (const bool byOneWrite : {true, false}) {
        File file = store.Create("v", true);
        const Bytes bytes = Pattern(17 * payload);
        const uint32_t step = byOneWrite ? 17 * payload : payload;
        for (uint32_t at = 0; at < 16 * payload; at += step) {
            const uint32_t end = std::min(at + step, 16 * payload);
            file.Write(Bytes(bytes.begin() + at, bytes.begin() + end));
        }
        EXPECT_EQ(file.Object()->pageList.Count(), 16u);
        EXPECT_EQ(file.Object()->pageListPages.Count(), 0u);
        file.Write(Bytes(bytes.begin() + 16 * payload, bytes.end()));
        EXPECT_EQ(file.Object()->pageList.Count(), 17u);
        EXPECT_EQ(file.Object()->pageListPages.Count(), 1u);
        file.Close();
        EXPECT_NE(StoredRecord(store, 512, container::PageListRec).link, 0u);
        EXPECT_EQ(store.Get("v"), bytes);

        file = store.OpenFile("v", true);
        file.SetStreamEnd(8 * payload - 1);
        file.SetSize(8 * payload - 1);
        EXPECT_EQ(file.Object()->pageListPages.Count(), 1u);
        file.Close();
        EXPECT_NE(StoredRecord(store, 512, container::PageListRec).link, 0u);
        file = store.OpenFile("v", true);
        file.SetSize(7 * payload - 1);
        EXPECT_EQ(file.Object()->pageListPages.Count(), 0u);
        file.Close();
        EXPECT_EQ(StoredRecord(store, 512, container::PageListRec).size, 0u);
        EXPECT_EQ(store.Get("v"), Bytes(bytes.begin(), bytes.begin() + 7 * payload - 1));
    }
}

TEST(StreamShape, AnIndexOfManyPagesGrowsAndShrinks) {
    Store store(256);
    const uint32_t payload = store.Payload(), entries = payload / 4;
    const Bytes bytes = Pattern(payload * (3 * entries + 5));
    store.Put("v", bytes);
    EXPECT_EQ(store.Get("v"), bytes);
    store.Reopen();
    for (const uint32_t pages :
         {3 * entries + 1, 3 * entries, 2 * entries, entries + 1, entries, 9u}) {
        File file = store.OpenFile("v", true);
        file.SetSize(pages * payload - 3);
        EXPECT_EQ(file.Object()->pageListPages.Count(), (pages + entries - 1) / entries) << pages;
        file.Close();
        const container::Reading reading = store.Closed();
        EXPECT_TRUE(reading.Sound()) << pages << reading.Report();
        EXPECT_EQ(reading.At(u"\\v")->body,
                  Bytes(bytes.begin(), bytes.begin() + pages * payload - 3));
        store.Open();
    }
}

TEST(StreamShape, ExactlyFullPagesTakeNoPageMore) {
    for (const uint32_t pageSize : {256u, 512u, 65536u}) {
        Store store(pageSize);
        const uint32_t payload = store.Payload();
        File file = store.Create("v");
        file.Write(Pattern(2 * payload));
        EXPECT_EQ(file.Object()->pageList.Count(), 2u);
        // Looking behind the end changes nothing.
        EXPECT_EQ(file.Read(1), Bytes());
        EXPECT_EQ(file.Object()->pageList.Count(), 2u);
        file.Close();
        store.Reopen();
        file = store.OpenFile("v", true);
        file.Seek(2 * payload);
        EXPECT_EQ(file.Read(1), Bytes());
        file.Write({7});
        EXPECT_EQ(file.Object()->pageList.Count(), 3u);
        file.Close();
        Bytes expected = Pattern(2 * payload);
        expected.push_back(7);
        store.Reopen();
        EXPECT_EQ(store.Get("v"), expected);
    }
}

TEST(StreamShape, AStreamEndOnAPageEndIsKeptAsOneMore) {
    Store store(512);
    File file = store.Create("v");
    file.SetStreamEnd(960);
    EXPECT_EQ(file.Object()->streamEnd, 961u);
    EXPECT_EQ(file.Object()->size, 960u);
    EXPECT_EQ(file.Object()->pageList.Count(), 3u);
    file.SetStreamEnd(959);
    EXPECT_EQ(file.Object()->streamEnd, 959u);
    EXPECT_EQ(file.Object()->size, 960u);
    EXPECT_EQ(file.Object()->pageList.Count(), 2u);
    file.Seek(960);
    file.Write({5});
    EXPECT_EQ(file.Object()->streamEnd, 961u);
    EXPECT_EQ(file.Object()->size, 961u);
    file.SetStreamEnd(0);
    EXPECT_EQ(file.Object()->streamEnd, 0u);
    EXPECT_EQ(file.Object()->size, 0u);
}

TEST(StreamShape, EmptyingFreesThePagesAndLeavesNothingBehind) {
    for (const uint32_t size : {300u, 5000u, 20000u}) {
        Store store(512);
        store.Put("first", {1});
        store.Put("v", Bytes(size, 0xAA));
        File file = store.Create("v", true);
        EXPECT_EQ(file.Read(1), Bytes());
        // The gap reads as zeros though bytes stood there.
        file.Seek(200);
        file.Write({1});
        file.Close();
        Bytes expected(200, 0);
        expected.push_back(1);
        EXPECT_EQ(store.Get("v"), expected);
        const container::Reading reading = store.Closed();
        EXPECT_TRUE(reading.Sound()) << reading.Report();
        EXPECT_LE(reading.usedPages, 5u);
        store.Open();
    }
}

TEST(StreamShape, AGapIsFilledWithZerosAlsoOverOldBytes) {
    for (const uint32_t pageSize : {256u, 512u, 4096u}) {
        Store store(pageSize);
        const uint32_t payload = store.Payload();
        for (const uint64_t end :
             {uint64_t{10}, uint64_t{payload} - 1, uint64_t{payload}, uint64_t{payload} * 3 + 5}) {
            File file = store.Create("v", true);
            file.Write(Bytes(4 * payload, 0xEE));
            file.SetSize(end);
            file.Seek(5 * payload + 3);
            file.Write({1, 2});
            file.Close();
            Bytes expected(5 * payload + 5, 0);
            std::fill_n(expected.begin(), end, 0xEE);
            expected[5 * payload + 3] = 1;
            expected[5 * payload + 4] = 2;
            store.Reopen();
            EXPECT_EQ(store.Get("v"), expected) << pageSize << " " << end;
        }
    }
}

TEST(StreamShape, ASizeBeyondTheStreamReadsAsZeros) {
    Store store(512);
    File file = store.Create("v");
    file.Write({1, 2, 3});
    file.SetSize(1000);
    file.Seek(0);
    Bytes expected(1000, 0);
    expected[0] = 1, expected[1] = 2, expected[2] = 3;
    EXPECT_EQ(file.Read(5000), expected);
    EXPECT_EQ(file.Object()->pageList.Count(), 0u);
    // A read that begins past what is stored makes nothing.
    file.Seek(700);
    EXPECT_EQ(file.Read(10), Bytes(10, 0));
    EXPECT_EQ(file.Object()->streamEnd, 3u);
    EXPECT_EQ(file.Object()->pageList.Count(), 0u);
    file.Close();
    store.Reopen();
    EXPECT_EQ(store.Get("v"), expected);
    // Not where nothing may be written.
    store.Context()->readOnly = true;
    file = store.OpenFile("v");
    file.Object()->size = 5000;
    file.Seek(3000);
    EXPECT_EQ(file.Read(10), Bytes(10, 0));
    EXPECT_EQ(file.Object()->pageList.Count(), 0u);
    EXPECT_EQ(file.TryWrite({1}), storage::kAccess);
    EXPECT_EQ(file.Close(), 0);
    store.Context()->readOnly = false;
}

TEST(StreamShape, ASmallWriteWithinTheBlockTouchesNoPage) {
    Store store(512);
    File file = store.Create("v");
    file.Write(Pattern(4000));
    file.Seek(1000);
    file.Write({1});
    const storage::FileBlock* block = file.Handle()->block;
    EXPECT_EQ(block->start, 960u);
    EXPECT_NE(block->flags & storage::kBlockDirty, 0u);
    file.Write({2, 3});
    EXPECT_EQ(file.Handle()->block, block);
    // Another handle sees it before it is stored.
    File other = store.OpenFile("v");
    other.Seek(1000);
    EXPECT_EQ(other.Read(3), (Bytes{1, 2, 3}));
    EXPECT_EQ(other.Close(), 0);
    EXPECT_EQ(file.Close(), 0);
    Bytes expected = Pattern(4000);
    expected[1000] = 1, expected[1001] = 2, expected[1002] = 3;
    store.Reopen();
    EXPECT_EQ(store.Get("v"), expected);
}

TEST(StreamShape, ShrinkingPullsOtherHandlesBack) {
    Store store(512);
    File file = store.Create("v");
    file.Write(Pattern(5000));
    File other = store.OpenFile("v", true);
    other.Seek(4000);
    other.Write({9});
    file.SetSize(700);
    EXPECT_EQ(other.Handle()->position, 700u);
    EXPECT_EQ(other.Handle()->block, nullptr);
    EXPECT_EQ(other.Read(1), Bytes());
    other.Write({8});
    EXPECT_EQ(other.Close(), 0);
    EXPECT_EQ(file.Close(), 0);
    Bytes expected = Pattern(5000);
    expected.resize(700);
    expected.push_back(8);
    EXPECT_EQ(store.Get("v"), expected);
}

TEST(StreamShape, PositionsThatNoStreamCanReachAreRefused) {
    Store store(512);
    File file = store.Create("v");
    for (const uint64_t position :
         {UINT64_MAX, UINT64_MAX - 5, uint64_t{1} << 63, (uint64_t{1} << 32) * 480}) {
        file.Seek(position);
        EXPECT_EQ(file.TryWrite({1, 2, 3}), storage::kFull);
        EXPECT_EQ(file.Read(1), Bytes());
    }
    file.SetSize(UINT64_MAX);
    Bytes bytes;
    for (const uint64_t position : {uint64_t{1} << 40, UINT64_MAX - 5}) {
        file.Seek(position);
        EXPECT_EQ(file.TryRead(100, &bytes), 0);
        EXPECT_EQ(bytes, Bytes(std::min<uint64_t>(100, UINT64_MAX - position), 0));
    }
    EXPECT_EQ(file.Object()->pageList.Count(), 0u);
    EXPECT_EQ(file.Close(), 0);
}

TEST(StreamShape, TheRootAndDirectoriesHaveStreamsToo) {
    Store store(512);
    ASSERT_EQ(storage::StorageCreateDirectory(store.Context(), WTEXT("d")), 0);
    for (const char* name : {"d", "\\"}) {
        const Bytes bytes = Pattern(20 * 480);
        File file = store.OpenFile(name, true);
        if (file.Handle() == nullptr) continue;
        file.Write(bytes);
        EXPECT_EQ(file.Object()->pageListPages.Count(), std::string(name) == "d" ? 1u : 0u);
        EXPECT_EQ(file.Close(), 0);
        store.Reopen();
        EXPECT_EQ(store.Get(name), bytes);
    }
    const container::Reading reading = store.Closed();
    EXPECT_TRUE(reading.Sound()) << reading.Report();
}

}  // namespace
