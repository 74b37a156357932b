// Every call to the file and to the heap fails once, in the middle of work on streams.
#include <functional>

#include "tests/storage/streams/StreamHarness.h"
#include "tests/support/FailingHeap.h"
#include "tests/support/FaultFile.h"

namespace {

using streams::File;
using streams::Pattern;
using streams::Store;
using support::Bytes;

constexpr uint32_t kPayload = 224;

// What is done while something fails. A status that is not 0 ends it.
using Work = std::function<storage::Status(Store&)>;

storage::Status CloseAfter(File& file, storage::Status status) {
    const storage::Status closed = file.Close();
    return status != 0 ? status : closed;
}

storage::Status WriteNew(Store& store) {
    storage::FileHandle* handle = nullptr;
    storage::Status status = store.TryCreate("new", true, &handle);
    if (status != 0) return status;
    File file(handle);
    for (int i = 0; i < 5 && status == 0; ++i) status = file.TryWrite(Pattern(kPayload * 4 + 7));
    return CloseAfter(file, status);
}

storage::Status OverwriteLong(Store& store) {
    storage::FileHandle* handle = nullptr;
    storage::Status status = store.TryOpenFile("long", true, &handle);
    if (status != 0) return status;
    File file(handle);
    file.Seek(kPayload * 3);
    status = file.TryWrite(Bytes(kPayload * 3, 1));
    file.Seek(kPayload * 80);  // past a second index page
    if (status == 0) status = file.TryWrite({1, 2, 3});
    return CloseAfter(file, status);
}

storage::Status ReadLong(Store& store) {
    storage::FileHandle* handle = nullptr;
    storage::Status status = store.TryOpenFile("long", false, &handle);
    if (status != 0) return status;
    File file(handle);
    Bytes bytes;
    status = file.TryRead(kPayload * 70, &bytes);
    if (status == 0) {
        EXPECT_EQ(bytes, Pattern(kPayload * 70));
    }
    return CloseAfter(file, status);
}

storage::Status EmptyAndShorten(Store& store) {
    storage::FileHandle* handle = nullptr;
    storage::Status status = store.TryOpenFile("long", true, &handle);
    if (status != 0) return status;
    {
        File file(handle);
        for (const uint32_t pages : {58u, 20u, 6u})
            if (status == 0)
                status = storage::SetFileSize(file.Object(), pages * kPayload + 1,
                                              file.Object()->transaction);
        status = CloseAfter(file, status);
    }
    if (status == 0) status = store.TryCreate("long", true, &handle);
    if (status != 0) return status;
    File file(handle);
    return CloseAfter(file, file.TryWrite({1}));
}

void Prepare(Store& store) {
    store.Put("other", Pattern(3000));
    store.Put("long", Pattern(kPayload * 70));
    store.Reopen();
}

// The store serves on after the failure, and opens again.
void CheckAlive(Store& store, uint64_t call) {
    EXPECT_EQ(store.Get("other"), Pattern(3000)) << call;
    store.Put("after", Pattern(2000));
    EXPECT_EQ(store.Get("after"), Pattern(2000)) << call;
    store.Reopen();
    EXPECT_EQ(store.Get("other"), Pattern(3000)) << call;
    EXPECT_EQ(store.Get("after"), Pattern(2000)) << call;
}

class StreamFaults : public testing::TestWithParam<Work> {};

TEST_P(StreamFaults, EveryFileCall) {
    for (uint64_t call = 1;; ++call) {
        support::FaultFile faults;
        Store store(256);
        Prepare(store);
        faults.Reset();
        faults.FailAny(call, platform::kErrorDiskFull);
        const storage::Status status = GetParam()(store);
        const bool hit = faults.Hits() != 0;
        faults.Reset();
        if (!hit) {
            EXPECT_EQ(status, 0);
            break;
        }
        CheckAlive(store, call);
        if (HasFailure()) break;
        store.Close();
    }
}

TEST_P(StreamFaults, EveryAllocation) {
    for (uint64_t call = 1;; ++call) {
        Store store(256);
        Prepare(store);
        bool hit = false;
        storage::Status status = 0;
        {
            const support::FailingHeap heap(call);
            status = GetParam()(store);
            hit = heap.Hits() != 0;
        }
        if (!hit) {
            EXPECT_EQ(status, 0);
            break;
        }
        EXPECT_TRUE(status == 0 || status == storage::kNoMemory) << call << ": " << status;
        CheckAlive(store, call);
        const auto reading = store.Closed();
        EXPECT_TRUE(reading.Sound()) << call << "\n" << reading.Report();
        if (HasFailure()) break;
    }
}

INSTANTIATE_TEST_SUITE_P(Works, StreamFaults,
                         testing::Values(WriteNew, OverwriteLong, ReadLong, EmptyAndShorten));

// The disk is full: what was there stays, and the error says so.
TEST(StreamFull, AContainerAtItsLimitRefusesAndGoesOn) {
    Store store(256);
    Prepare(store);
    store.Context()->Super()->maxPages = store.Context()->totalPages + 10;
    File file = store.Create("new");
    EXPECT_EQ(file.TryWrite(Pattern(kPayload * 200)), storage::kFull);
    file.Close();
    EXPECT_EQ(store.Get("long"), Pattern(kPayload * 70));
    EXPECT_EQ(store.Delete("new"), 0);
    store.Put("small", {1, 2});
    const auto reading = store.Closed();
    EXPECT_TRUE(reading.Sound()) << reading.Report();
    store.Open();
    EXPECT_EQ(store.Get("small"), (Bytes{1, 2}));
}

}  // namespace
