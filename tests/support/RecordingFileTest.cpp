#include "tests/support/RecordingFile.h"

#include <gtest/gtest.h>

#include "tests/support/FaultFile.h"
#include "tests/support/OpenFile.h"

namespace {

using platform::Disposition;
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

}  // namespace
