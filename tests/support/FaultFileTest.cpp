#include "tests/support/FaultFile.h"

#include <gtest/gtest.h>

#include "tests/support/OpenFile.h"
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

}  // namespace
