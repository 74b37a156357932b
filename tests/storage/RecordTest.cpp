// SPDX-License-Identifier: MIT
// Records in an object's HeaderPages, below the public operations.
#include <gtest/gtest.h>

#include "storage/core/PageCache.h"
#include "storage/core/Transaction.h"
#include "storage/namespace/Records.h"
#include "tests/container/EngineStore.h"

namespace {

using namespace storage;
using support::Bytes;

// The root of a fresh container, in a transaction that is rolled back.
struct Records {
    support::container::EngineStore store;
    FileObject* root = store.Container()->objects->root;
    StorageTransaction* transaction = nullptr;

    explicit Records(uint32_t pageSize = 512) : store(pageSize) {
        EXPECT_EQ(BeginTransaction(store, &transaction, TransactionMode::Write), kOk);
    }
    ~Records() { RollbackTransaction(store, transaction); }

    Status Add(uint16_t type, uint32_t length) {
        const Bytes data(length, static_cast<uint8_t>(type));
        return AddRecord(root, type, data.data(), length, nullptr, transaction);
    }
    // Where a record is; page 0 for one that is not there.
    struct Found {
        uint32_t page = 0, payload = 0, link = 0;
    };
    Found Find(uint16_t type) {
        RecordPlace place;
        EXPECT_EQ(FindRecord(root, type, &place, 0, false, transaction), kOk);
        if (place.page == nullptr) return {};
        const Found found{place.page->number, place.PayloadSize(), place.Link()};
        ReleasePage(store, place.page);
        return found;
    }
    // Of page 2; behind it are zeros.
    uint32_t EndOffset() {
        CachePage* page = nullptr;
        EXPECT_EQ(GetPage(store, 2, &page, true, transaction), kOk);
        const uint32_t end = HeaderPageOf(page->buffer)->endOffset;
        for (uint32_t at = end; at < store.Container()->pageSize; ++at)
            EXPECT_EQ(page->buffer[at], 0);
        ReleasePage(store, page);
        return end;
    }
};

TEST(Record, SizesAndDuplicatesAreRefused) {
    for (const uint32_t pageSize : {256u, 512u, 4096u, 65536u}) {
        Records records(pageSize);
        EXPECT_EQ(records.EndOffset(), kFreshRecordsEnd);
        EXPECT_EQ(records.Find(kFileInfoRecord).page, 2u);
        RecordPlace place;
        EXPECT_EQ(FindRecord(records.root, kDataRecord, &place, 0, true, records.transaction),
                  kCorrupt);
        EXPECT_EQ(records.Add(100, pageSize - 59), kInvalid);
        EXPECT_EQ(records.Add(100, pageSize - 60), kOk);
        EXPECT_EQ(records.Add(100, 1), kRecordExists);
        EXPECT_NE(records.Find(100).page, 2u) << "a HeaderPage of its own";
        EXPECT_EQ(records.Find(100).payload, pageSize - 60);
        EXPECT_EQ(records.Add(101, 4), kOk);
        EXPECT_EQ(records.Find(101).page, 2u);
    }
}

TEST(Record, MovableOnesMakeRoom) {
    Records records;
    ASSERT_EQ(records.Add(kDataRecord, 128), kOk);
    ASSERT_EQ(records.Add(kLinkRecord, 128), kOk);
    ASSERT_EQ(records.Add(100, 100), kOk);
    const uint32_t end = records.EndOffset();
    EXPECT_EQ(records.Add(101, 60), kOk) << "one has to go";
    EXPECT_EQ(records.Find(101).page, 2u);
    const Records::Found moved = records.Find(kDataRecord);
    EXPECT_EQ(moved.page, 2u);
    EXPECT_EQ(moved.payload, 0u);
    EXPECT_EQ(records.EndOffset(), end - 128 + 72);
    CachePage* page = nullptr;
    ASSERT_EQ(GetPage(records.store, moved.link, &page, true, records.transaction), kOk);
    const PageHeader& header = *HeaderOf(page->buffer);
    EXPECT_EQ(header.kind, kDataPage);
    EXPECT_EQ(header.prevPage, 2u);
    EXPECT_EQ(header.fileId, kRootFileId);
    EXPECT_EQ(header.recordType, kDataRecord);
    EXPECT_EQ(Bytes(page->buffer + 32, page->buffer + 160), Bytes(128, kDataRecord));
    EXPECT_EQ(page->buffer[160], 0);
    ReleasePage(records.store, page);
    // What the other could give is not enough: it stays, and the chain grows.
    EXPECT_EQ(records.Add(102, 300), kOk);
    EXPECT_NE(records.Find(102).page, 2u);
    EXPECT_EQ(records.Find(kLinkRecord).payload, 128u);
    EXPECT_EQ(records.Find(kLinkRecord).link, 0u);
}

}  // namespace
