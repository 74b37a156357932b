// The files, heap and clock that tests put in place of the system's: a fake that is too kind hides
// what it is there to find.
#include <gtest/gtest.h>

#include "platform/Heap.h"
#include "tests/support/FailingHeap.h"
#include "tests/support/FaultFile.h"
#include "tests/support/FixedClock.h"
#include "tests/support/OpenFile.h"
#include "tests/support/RecordingFile.h"
#include "tests/support/TempDir.h"

namespace {

using platform::Disposition;
using platform::kErrorDiskFull;
using platform::kErrorGenFailure;
using support::FaultFile;
using support::FileCall;

class FaultFileTest : public testing::Test {
  protected:
    support::TempDir dir_;
    FaultFile faults_;
    std::unique_ptr<platform::PageFile> file_ =
        support::OpenFile(dir_.File("f.tarn"), Disposition::CreateNew);
    uint32_t done_ = 77;
    char buffer_[8] = {};
};

TEST_F(FaultFileTest, FailsTheNamedCallOfItsKindOnly) {
    faults_.Fail(FileCall::Write, 2, kErrorDiskFull);
    uint64_t size = 0;
    EXPECT_EQ(support::WriteAt(*file_, 0, "abcd", &done_), 0u);
    EXPECT_EQ(file_->Read(0, buffer_, 4, &done_), 0u);
    EXPECT_EQ(support::WriteAt(*file_, 4, "efgh", &done_), kErrorDiskFull);
    EXPECT_EQ(done_, 0u);
    EXPECT_EQ(platform::LastError(), kErrorDiskFull);
    EXPECT_EQ(file_->Size(&size), 0u);
    EXPECT_EQ(size, 4u) << "a failed write must leave nothing";
    EXPECT_EQ(support::WriteAt(*file_, 4, "efgh", &done_), 0u);
    EXPECT_EQ(faults_.Calls(FileCall::Write), 3u);
    EXPECT_EQ(faults_.Calls(), 5u);
    EXPECT_EQ(faults_.Hits(), 1u);
}

TEST_F(FaultFileTest, CountsAllKindsTogetherAndCanKeepFailing) {
    faults_.FailAny(2, kErrorGenFailure);
    faults_.KeepFailing(true);
    uint64_t size = 0;
    EXPECT_EQ(file_->Size(&size), 0u);
    EXPECT_EQ(file_->Read(0, buffer_, 4, &done_), kErrorGenFailure);
    EXPECT_EQ(file_->Cut(100), kErrorGenFailure);
    EXPECT_EQ(file_->Flush(), kErrorGenFailure);
    EXPECT_EQ(faults_.Hits(), 3u);
    faults_.Reset();
    EXPECT_EQ(file_->Size(&size), 0u);
    EXPECT_EQ(size, 0u) << "the failed cut reached the file";
}

TEST_F(FaultFileTest, TearsAWriteInTheMiddleOfItsBuffers) {
    faults_.Fail(FileCall::Write, 1, kErrorDiskFull);
    faults_.OnFailingWrite(FaultFile::Write::FirstHalf);
    const void* buffers[] = {"abcd", "efgh", "ijkl"};
    EXPECT_EQ(file_->Write(0, buffers, 3, 4, &done_), kErrorDiskFull);
    EXPECT_EQ(done_, 6u);
    EXPECT_EQ(support::ReadBytes(dir_ / "f.tarn"), (support::Bytes{'a', 'b', 'c', 'd', 'e', 'f'}));
}

TEST_F(FaultFileTest, ShortensARead) {
    support::WriteAt(*file_, 0, "abcd", &done_);
    faults_.Fail(FileCall::Read, 1, platform::kErrorSuccess);
    EXPECT_EQ(file_->Read(0, buffer_, 4, &done_), 0u);
    EXPECT_EQ(done_, 2u);
    EXPECT_STREQ(buffer_, "ab");
}

TEST_F(FaultFileTest, LeavesOtherPathsAlone) {
    faults_.OnlyPathsEndingIn(WTEXT(".log"));
    auto log = support::OpenFile(dir_.File("f.log"), Disposition::CreateNew);
    auto other = support::OpenFile(dir_.File("g.tarn"), Disposition::CreateNew);
    faults_.Fail(FileCall::Write, 1, kErrorDiskFull);
    EXPECT_EQ(support::WriteAt(*other, 0, "x", &done_), 0u);
    EXPECT_EQ(support::WriteAt(*log, 0, "x", &done_), kErrorDiskFull);
}

TEST(FaultFileScope, EndsWithTheScope) {
    const support::TempDir dir;
    { const FaultFile faults; }
    auto file = support::OpenFile(dir.File("f"), Disposition::CreateNew);
    uint32_t done = 0;
    EXPECT_EQ(support::WriteAt(*file, 0, "x", &done), 0u);
}

using support::Bytes;

Bytes Text(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

class RecordingFileTest : public testing::Test {
  protected:
    RecordingFileTest() { support::WriteBytes(dir_ / "f", Text("0123456789")); }

    support::TempDir dir_;
    platform::WString path_ = dir_.File("f");
    uint32_t done_ = 0;
};

TEST_F(RecordingFileTest, RebuildsEveryPrefixAndATornLastWrite) {
    support::RecordingFile record;
    auto file = support::OpenFile(path_, Disposition::OpenExisting);
    support::WriteAt(*file, 2, "AB", &done_);
    file->Cut(4);
    file->Flush();
    const void* gathered[] = {"xy", "zw"};
    file->Write(6, gathered, 2, 2, &done_);
    ASSERT_EQ(record.Changes().size(), 4u);
    EXPECT_EQ(record.Image(path_, 0), Text("0123456789"));
    EXPECT_EQ(record.Image(path_, 1), Text("01AB456789"));
    EXPECT_EQ(record.Image(path_, 1, 1), Text("01A3456789"));
    EXPECT_EQ(record.Image(path_, 2), Text("01AB"));
    EXPECT_EQ(record.Image(path_, 3), Text("01AB"));
    EXPECT_EQ(record.Image(path_, 4, 0), Text("01AB")) << "a write of no bytes does not grow";
    EXPECT_EQ(record.Image(path_, 4, 3), Text({"01AB\0\0xyz", 9}));
    EXPECT_EQ(record.Image(path_, 4), support::ReadBytes(dir_ / "f"));
}

TEST_F(RecordingFileTest, KeepsTheOrderOverFilesAndRestarts) {
    support::RecordingFile record;
    auto first = support::OpenFile(path_, Disposition::OpenExisting);
    auto second = support::OpenFile(dir_.File("g"), Disposition::CreateNew);
    support::WriteAt(*second, 0, "log", &done_);
    support::WriteAt(*first, 0, "data", &done_);
    EXPECT_EQ(record.Image(path_, 1), Text("0123456789"));
    EXPECT_EQ(record.Image(dir_.File("g"), 1), Text("log"));
    record.Restart();
    EXPECT_TRUE(record.Changes().empty());
    EXPECT_EQ(record.Image(path_, 0), Text("data456789"));
}

TEST_F(RecordingFileTest, SeesAFileThatAnOpeningHasEmptied) {
    support::RecordingFile record;
    auto file = support::OpenFile(path_, Disposition::OpenExisting);
    file.reset();
    file = support::OpenFile(path_, Disposition::CreateAlways);
    support::WriteAt(*file, 0, "new", &done_);
    EXPECT_EQ(record.Image(path_, record.Changes().size()), Text("new"));
}

// A failing write that reached the disk in part is part of what a crash would leave.
TEST_F(RecordingFileTest, RecordsWhatATornWriteLeft) {
    support::RecordingFile record;
    support::FaultFile faults;
    auto file = support::OpenFile(path_, Disposition::OpenExisting);
    faults.Fail(support::FileCall::Write, 1, platform::kErrorDiskFull);
    faults.OnFailingWrite(support::FaultFile::Write::FirstHalf);
    EXPECT_EQ(support::WriteAt(*file, 0, "ABCD", &done_), platform::kErrorDiskFull);
    ASSERT_EQ(record.Changes().size(), 1u);
    EXPECT_EQ(record.Image(path_, 1), Text("AB23456789"));
}

bool Allocates() {
    void* memory = platform::HeapAllocate(16);
    platform::HeapRelease(memory);
    return memory != nullptr;
}

TEST(FailingHeap, FailsTheNamedAllocationAndGoesWithItsScope) {
    {
        const support::FailingHeap heap(2);
        EXPECT_TRUE(Allocates());
        EXPECT_EQ(platform::HeapAllocateZeroed(16), nullptr);
        EXPECT_TRUE(Allocates());
        EXPECT_EQ(heap.Calls(), 3u);
        EXPECT_EQ(heap.Hits(), 1u);
    }
    {
        const support::FailingHeap heap(1, true);
        EXPECT_FALSE(Allocates());
        EXPECT_FALSE(Allocates());
    }
    EXPECT_TRUE(Allocates());
}

TEST(FixedClock, StandsStillUntilItsScopeEnds) {
    {
        support::FixedClock clock({1999, 12, 31, 23, 59, 58, 999});
        EXPECT_EQ(platform::UtcNow().year, 1999);
        EXPECT_EQ(platform::UtcNow().millisecond, 999);
        clock.Set({2000, 1, 1, 0, 0, 0, 0});
        EXPECT_EQ(platform::UtcNow().year, 2000);
    }
    EXPECT_GE(platform::UtcNow().year, 2024);
}

}  // namespace
