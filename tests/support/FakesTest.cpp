// SPDX-License-Identifier: MIT
// The files that tests put in place of the system's: a fake that is too kind hides what it is there
// to find.
#include <gtest/gtest.h>

#include "tests/support/FaultFile.h"
#include "tests/support/OpenFile.h"
#include "tests/support/RecordingFile.h"

namespace support {
namespace {

using platform::Disposition;
using platform::kErrorDiskFull;

Bytes Text(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

class Fakes : public testing::Test {
  protected:
    TempDir dir_;
    platform::WString path_ = dir_.File("f");
    uint32_t done_ = 77;
    uint64_t size_ = 0;
    char buffer_[8] = {};
};

TEST_F(Fakes, AFaultFileFailsTheNamedCallsOnly) {
    {
        FaultFile faults;
        auto file = OpenFile(path_, Disposition::CreateNew);
        faults.Fail(FileCall::Write, 2, kErrorDiskFull);
        EXPECT_EQ(WriteAt(*file, 0, "abcd", &done_), 0u);
        EXPECT_EQ(file->Read(0, buffer_, 4, &done_), 0u);
        EXPECT_EQ(WriteAt(*file, 4, "efgh", &done_), kErrorDiskFull);
        EXPECT_EQ(done_, 0u);
        EXPECT_EQ(platform::LastError(), kErrorDiskFull);
        EXPECT_EQ(file->Size(&size_), 0u);
        EXPECT_EQ(size_, 4u) << "a failed write must leave nothing";
        EXPECT_EQ(WriteAt(*file, 4, "efgh", &done_), 0u);
        EXPECT_EQ(faults.Calls(FileCall::Write), 3u);
        EXPECT_EQ(faults.Calls(), 5u);
        EXPECT_EQ(faults.Hits(), 1u);
        // A short read, and a write torn in the middle of its buffers.
        faults.Reset();
        faults.Fail(FileCall::Read, 1, platform::kErrorSuccess);
        EXPECT_EQ(file->Read(0, buffer_, 4, &done_), 0u);
        EXPECT_EQ(done_, 2u);
        faults.Fail(FileCall::Write, 1, kErrorDiskFull);
        faults.OnFailingWrite(FaultFile::Write::FirstHalf);
        const void* buffers[] = {"ABCD", "EFGH", "IJKL"};
        EXPECT_EQ(file->Write(0, buffers, 3, 4, &done_), kErrorDiskFull);
        EXPECT_EQ(done_, 6u);
        EXPECT_EQ(ReadBytes(dir_ / "f"), Text("ABCDEFgh"));
        // Calls of all kinds together, from one on.
        faults.Reset();
        faults.FailAny(2, kErrorDiskFull);
        faults.KeepFailing(true);
        EXPECT_EQ(file->Size(&size_), 0u);
        EXPECT_EQ(file->Read(0, buffer_, 4, &done_), kErrorDiskFull);
        EXPECT_EQ(file->Cut(100), kErrorDiskFull);
        EXPECT_EQ(file->Flush(), kErrorDiskFull);
        EXPECT_EQ(faults.Hits(), 3u);
        EXPECT_EQ(ReadBytes(dir_ / "f").size(), 8u) << "the failed cut reached the file";
    }
    EXPECT_EQ(WriteAt(*OpenFile(path_, Disposition::OpenExisting), 0, "x", &done_), 0u);
}

// Also what an opening empties, and what a failing write left in part.
TEST_F(Fakes, ARecordingFileRebuildsEveryPrefixAndATornLastWrite) {
    WriteBytes(dir_ / "f", Text("0123456789"));
    RecordingFile record;
    auto file = OpenFile(path_, Disposition::OpenExisting),
         other = OpenFile(dir_.File("g"), Disposition::CreateNew);
    WriteAt(*file, 2, "AB", &done_);
    WriteAt(*other, 0, "log", &done_);
    file->Cut(4);
    file->Flush();
    const void* gathered[] = {"xy", "zw"};
    file->Write(6, gathered, 2, 2, &done_);
    const std::string_view images[] = {"0123456789", "01AB456789", "01AB456789",
                                       "01AB",       "01AB",       {"01AB\0\0xyzw", 10}};
    ASSERT_EQ(record.Changes().size() + 1, std::size(images));
    for (size_t i = 0; i < std::size(images); ++i)
        EXPECT_EQ(record.Image(path_, i), Text(images[i])) << i;
    EXPECT_EQ(record.Image(dir_.File("g"), 2), Text("log"));
    EXPECT_EQ(record.Image(path_, 1, 1), Text("01A3456789"));
    EXPECT_EQ(record.Image(path_, 5, 0), Text("01AB")) << "a write of no bytes does not grow";
    EXPECT_EQ(record.Image(path_, 5, 3), Text({"01AB\0\0xyz", 9}));
    record.Restart();
    EXPECT_TRUE(record.Changes().empty());
    EXPECT_EQ(record.Image(path_, 0), Text({"01AB\0\0xyzw", 10}));
    FaultFile faults;
    file = OpenFile(path_, Disposition::CreateAlways);
    faults.Fail(FileCall::Write, 1, kErrorDiskFull);
    faults.OnFailingWrite(FaultFile::Write::FirstHalf);
    EXPECT_EQ(WriteAt(*file, 0, "ABCD", &done_), kErrorDiskFull);
    EXPECT_EQ(record.Image(path_, record.Changes().size()), Text("AB"));
    file.reset();
}

}  // namespace
}  // namespace support
