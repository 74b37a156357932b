// Records in an object's HeaderPages, below the public operations.
#include "storage/core/PageCache.h"
#include "storage/core/Transaction.h"
#include "storage/namespace/Records.h"
#include "tests/storage/namespace/Store.h"

namespace tests {

namespace {

// The root of a fresh container, in a transaction that is rolled back.
struct Records {
    Store store;
    FileObject* root = store.Get()->objects->root;
    StorageTransaction* transaction = nullptr;

    explicit Records(uint32_t pageSize = 512) : store(pageSize) {
        EXPECT_EQ(BeginTransaction(store, &transaction, TransactionMode::Write), kOk);
    }
    ~Records() { RollbackTransaction(store, transaction); }

    Status Add(uint16_t type, uint32_t length) {
        const Bytes data(length, static_cast<uint8_t>(type));
        return AddRecord(root, type, data.data(), length, nullptr, transaction);
    }
    // The page a record is on and its payload; 0 for one that is not there.
    uint32_t Find(uint16_t type, uint32_t* payload = nullptr, uint32_t* link = nullptr) {
        RecordPlace place;
        EXPECT_EQ(FindRecord(root, type, &place, 0, false, transaction), kOk);
        if (place.page == nullptr) return 0;
        if (payload != nullptr) *payload = place.PayloadSize();
        if (link != nullptr) *link = place.Link();
        const uint32_t number = place.page->number;
        ReleasePage(store, place.page);
        return number;
    }
    uint32_t EndOffset(uint32_t number) {
        CachePage* page = nullptr;
        EXPECT_EQ(GetPage(store, number, &page, true, transaction), kOk);
        const uint32_t end = HeaderPageOf(page->buffer)->endOffset;
        for (uint32_t at = end; at < store.Get()->pageSize; ++at) EXPECT_EQ(page->buffer[at], 0);
        ReleasePage(store, page);
        return end;
    }
};

}  // namespace

TEST(Record, FreshObjectsHaveOneOnly) {
    Records records;
    EXPECT_EQ(records.EndOffset(2), kFreshRecordsEnd);
    EXPECT_EQ(records.Find(kFileInfoRecord), 2u);
    EXPECT_EQ(records.Find(kDataRecord), 0u);
    RecordPlace place;
    EXPECT_EQ(FindRecord(records.root, kDataRecord, &place, 0, true, records.transaction),
              kCorrupt);
}

TEST(Record, SizesAndDuplicatesAreRefused) {
    for (const uint32_t pageSize : {256u, 512u, 4096u, 65536u}) {
        Records records(pageSize);
        EXPECT_EQ(records.Add(100, pageSize - 59), kInvalid);
        EXPECT_EQ(records.Add(100, pageSize - 60), kOk);
        EXPECT_EQ(records.Add(100, 1), kRecordExists);
        uint32_t payload = 0;
        EXPECT_NE(records.Find(100, &payload), 2u);  // a HeaderPage of its own
        EXPECT_EQ(payload, pageSize - 60);
        EXPECT_EQ(records.Add(101, 4), kOk);
        EXPECT_EQ(records.Find(101), 2u);
    }
}

TEST(Record, MovableOnesMakeRoom) {
    Records records;
    ASSERT_EQ(records.Add(kDataRecord, 128), kOk);
    ASSERT_EQ(records.Add(kLinkRecord, 128), kOk);
    ASSERT_EQ(records.Add(100, 100), kOk);
    const uint32_t end = records.EndOffset(2);
    EXPECT_EQ(records.Add(101, 60), kOk);  // one has to go
    EXPECT_EQ(records.Find(101), 2u);
    uint32_t payload = 1, link = 0;
    EXPECT_EQ(records.Find(kDataRecord, &payload, &link), 2u);
    EXPECT_EQ(payload, 0u);
    ASSERT_NE(link, 0u);
    EXPECT_EQ(records.EndOffset(2), end - 128 + 72);
    EXPECT_EQ(records.Find(kLinkRecord, &payload, &link), 2u);
    EXPECT_EQ(payload, 128u);
    EXPECT_EQ(link, 0u);
    // What the other could give is not enough: it stays, and the chain grows.
    EXPECT_EQ(records.Add(102, 300), kOk);
    EXPECT_NE(records.Find(102), 2u);
    EXPECT_EQ(records.Find(kLinkRecord, &payload, &link), 2u);
    EXPECT_EQ(payload, 128u);
}

TEST(Record, ASpilledPageSaysWhatItIs) {
    Records records;
    ASSERT_EQ(records.Add(kDataRecord, 40), kOk);
    RecordPlace place;
    ASSERT_EQ(FindRecord(records.root, kDataRecord, &place, 0, true, records.transaction), kOk);
    CachePage* page = nullptr;
    ASSERT_EQ(SpillRecord(records.root, place, &page, records.transaction), kOk);
    ASSERT_NE(page, nullptr);
    const PageHeader& header = *HeaderOf(page->buffer);
    EXPECT_EQ(header.kind, kDataPage);
    EXPECT_EQ(header.prevPage, 2u);
    EXPECT_EQ(header.fileId, kRootFileId);
    EXPECT_EQ(header.recordType, kDataRecord);
    EXPECT_EQ(page->buffer[32], kDataRecord);
    EXPECT_EQ(page->buffer[71], kDataRecord);
    EXPECT_EQ(page->buffer[72], 0);
    ReleasePage(records.store, page);
    CachePage* again = nullptr;
    EXPECT_EQ(SpillRecord(records.root, place, &again, records.transaction), kOk);
    EXPECT_EQ(again, nullptr);
    ReleasePage(records.store, place.page);
    EXPECT_EQ(records.EndOffset(2), kFreshRecordsEnd + 12);
}

TEST(Record, ResizingMovesTheOthers) {
    Records records;
    ASSERT_EQ(records.Add(100, 40), kOk);
    ASSERT_EQ(records.Add(101, 20), kOk);
    RecordPlace place;
    for (const uint32_t size : {90u, 8u, 0u, 300u}) {
        ASSERT_EQ(FindRecord(records.root, 100, &place, 0, true, records.transaction), kOk);
        EXPECT_EQ(ResizeRecord(records.root->context, place, size), kOk);
        EXPECT_EQ(place.Info(), size);
        for (uint32_t i = 40; i < size; ++i) EXPECT_EQ(place.Payload()[i], 0);
        ReleasePage(records.store, place.page);
        EXPECT_EQ(records.EndOffset(2), 84u + 12 + size + 32);
        uint32_t payload = 0;
        EXPECT_EQ(records.Find(101, &payload), 2u);
        EXPECT_EQ(payload, 20u);
    }
    ASSERT_EQ(FindRecord(records.root, 100, &place, 0, true, records.transaction), kOk);
    EXPECT_EQ(ResizeRecord(records.root->context, place, 400), kInvalid);
    ReleasePage(records.store, place.page);
    EXPECT_EQ(RemoveRecord(records.root, 100, records.transaction), kOk);
    EXPECT_EQ(records.Find(100), 0u);
    EXPECT_EQ(records.Find(101), 2u);
    EXPECT_EQ(records.EndOffset(2), 84u + 32);
}

TEST(Record, WalksEndAtWhatCannotBe) {
    struct Damage {
        uint32_t offset;
        uint16_t value;
    };
    // The end offset and the size of the first record.
    for (const Damage& damage :
         {Damage{32, 0}, Damage{32, 35}, Damage{32, 513}, Damage{32, 65535}, Damage{32, 47},
          Damage{38, 0}, Damage{38, 11}, Damage{38, 49}, Damage{38, 65535}, Damage{38, 40}}) {
        support::container::Builder builder(
            {},
            support::container::Directory(u"", {support::container::File(u"f", Bytes(3, 'x'))}));
        uint8_t* page = builder.Page(builder.At(u"\\f").headerPage);
        support::container::Put16(page, damage.offset, damage.value);
        Store store(builder.Finish());
        EXPECT_EQ(store.Text(WTEXT("\\f")), "status -3") << damage.offset << " " << damage.value;
        EXPECT_EQ(store.Delete(WTEXT("\\f")), kCorrupt);
        uint8_t corrupted = 0;
        EXPECT_EQ(StorageIsCorrupted(store, &corrupted), kOk);
        EXPECT_EQ(corrupted, 1);
        EXPECT_EQ(store.Put(WTEXT("\\g")), kOk);
    }
}

}  // namespace tests
