#include "platform/PageFile.h"

#include <gtest/gtest.h>

#include <numeric>

#include "platform/Resources.h"
#include "tests/support/FailingHeap.h"
#include "tests/support/OpenFile.h"
#include "tests/support/TempDir.h"

namespace {

using namespace platform;
using support::OpenFile;
using support::WriteAt;

class PageFileTest : public testing::Test {
  protected:
    std::unique_ptr<PageFile> Create() { return OpenFile(path_, Disposition::CreateNew); }

    support::TempDir dir_;
    WString path_ = dir_.File("f.tarn");
    uint32_t done_ = 99;
    char buffer_[16] = {};
};

TEST_F(PageFileTest, ReadsShortAtTheEndWithoutAnError) {
    auto file = Create();
    ASSERT_EQ(WriteAt(*file, 0, "abcdef", &done_), 0u);
    EXPECT_EQ(done_, 6u);
    for (const auto& [offset, expected] : {std::pair(2u, 4u), {6u, 0u}, {4000000u, 0u}}) {
        SetLastError(1234);
        EXPECT_EQ(file->Read(offset, buffer_, 16, &done_), 0u);
        EXPECT_EQ(done_, expected);
        EXPECT_EQ(LastError(), 0u) << "a short read is told by a last error of 0";
    }
    EXPECT_EQ(std::string(buffer_, 4), "cdef");
}

TEST_F(PageFileTest, WritesManyBuffersAsOneRun) {
    auto file = Create();
    constexpr uint32_t kCount = 150;
    std::vector<support::Bytes> pages(kCount, support::Bytes(512));
    std::vector<const void*> buffers;
    support::Bytes expected(100);
    for (uint32_t i = 0; i < kCount; ++i) {
        std::iota(pages[i].begin(), pages[i].end(), static_cast<uint8_t>(i * 7));
        expected.insert(expected.end(), pages[i].begin(), pages[i].end());
        buffers.push_back(pages[i].data());
    }
    ASSERT_EQ(file->Write(100, buffers.data(), kCount, 512, &done_), 0u);
    EXPECT_EQ(done_, kCount * 512);
    EXPECT_EQ(support::ReadBytes(dir_ / "f.tarn"), expected) << "the gap in front reads as zero";
}

#ifdef _WIN32
TEST_F(PageFileTest, WritesManyBuffersWithoutMemoryForARun) {
    auto file = Create();
    const support::FailingHeap heap(1, true);
    const void* buffers[] = {"ab", "cd"};
    ASSERT_EQ(file->Write(0, buffers, 2, 2, &done_), 0u);
    EXPECT_EQ(done_, 4u);
    EXPECT_EQ(support::ReadBytes(dir_ / "f.tarn"), (support::Bytes{'a', 'b', 'c', 'd'}));
}
#endif

TEST_F(PageFileTest, ReachesOffsetsBeyond32Bits) {
    auto file = Create();
    ASSERT_EQ(file->Cut(0x140000000), 0u);
    // The low half of the second position is the value that a failed seek would give.
    for (const uint64_t offset : {uint64_t{0x100000000}, uint64_t{0x0FFFFFFFF}}) {
        ASSERT_EQ(WriteAt(*file, offset, "there", &done_), 0u);
        ASSERT_EQ(file->Read(offset, buffer_, 5, &done_), 0u);
        EXPECT_EQ(std::string(buffer_, 5), "there");
    }
    uint64_t size = 0;
    EXPECT_EQ(file->Size(&size), 0u);
    EXPECT_EQ(size, 0x140000000u);
    EXPECT_EQ(file->Read(UINT64_MAX - 511, buffer_, 16, &done_), kErrorNegativeSeek);
    EXPECT_EQ(WriteAt(*file, UINT64_MAX - 511, "x", &done_), kErrorNegativeSeek);
    EXPECT_EQ(file->Cut(UINT64_MAX - 511), kErrorNegativeSeek);
}

TEST_F(PageFileTest, CutsAndGrows) {
    auto file = Create();
    ASSERT_EQ(WriteAt(*file, 0, "abcdef", &done_), 0u);
    EXPECT_EQ(file->Cut(2), 0u);
    EXPECT_EQ(file->Cut(4), 0u);
    EXPECT_EQ(file->Flush(), 0u);
    EXPECT_EQ(support::ReadBytes(dir_ / "f.tarn"), (support::Bytes{'a', 'b', 0, 0}));
}

TEST_F(PageFileTest, OpensAsTheDispositionSays) {
    EXPECT_EQ(OpenFile(path_, Disposition::OpenExisting), nullptr);
    EXPECT_EQ(LastError(), kErrorFileNotFound);
    ASSERT_NE(Create(), nullptr);
    EXPECT_EQ(Create(), nullptr);
    EXPECT_EQ(LastError(), kErrorFileExists);
    support::WriteBytes(dir_ / "f.tarn", {1, 2, 3});
    ASSERT_NE(OpenFile(path_, Disposition::OpenExisting), nullptr);
    EXPECT_EQ(support::ReadBytes(dir_ / "f.tarn").size(), 3u);
    ASSERT_NE(OpenFile(path_, Disposition::CreateAlways), nullptr);
    EXPECT_EQ(support::ReadBytes(dir_ / "f.tarn").size(), 0u);
}

TEST_F(PageFileTest, TellsWhyItCannotBeOpened) {
    EXPECT_EQ(OpenFile(dir_.File("none/f"), Disposition::CreateNew), nullptr);
    EXPECT_EQ(LastError(), kErrorPathNotFound);
    EXPECT_EQ(OpenFile(dir_.File("none/f"), Disposition::OpenExisting), nullptr);
    EXPECT_EQ(LastError(), kErrorPathNotFound);
    EXPECT_EQ(OpenFile({}, Disposition::OpenExisting), nullptr);
    EXPECT_EQ(LastError(), kErrorPathNotFound);
    for (const bool readOnly : {false, true}) {
        EXPECT_EQ(OpenFile(dir_.File("."), Disposition::OpenExisting, readOnly), nullptr);
        EXPECT_EQ(LastError(), kErrorAccessDenied) << "a folder is no file";
    }
    EXPECT_EQ(AdoptFileHandle(nullptr, path_.c_str()), nullptr);
}

TEST_F(PageFileTest, IsSharedByReadersAndWriters) {
    auto first = Create();
    auto second = OpenFile(path_, Disposition::OpenExisting);
    auto reader = OpenFile(path_, Disposition::OpenExisting, true);
    ASSERT_TRUE(first && second && reader);
    ASSERT_EQ(WriteAt(*second, 0, "ab", &done_), 0u);
    ASSERT_EQ(reader->Read(0, buffer_, 2, &done_), 0u);
    EXPECT_EQ(std::string(buffer_, 2), "ab");
}

TEST_F(PageFileTest, ChangesNothingWhenReadOnly) {
    support::WriteBytes(dir_ / "f.tarn", {'a', 'b'});
    auto file = OpenFile(path_, Disposition::OpenExisting, true);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(WriteAt(*file, 0, "x", &done_), kErrorAccessDenied);
    EXPECT_EQ(done_, 0u);
    EXPECT_NE(file->Cut(0), 0u);
    EXPECT_EQ(file->Flush(), kErrorAccessDenied);
    EXPECT_EQ(support::ReadBytes(dir_ / "f.tarn"), (support::Bytes{'a', 'b'}));
}

TEST_F(PageFileTest, TakesNamesOfEveryScript) {
    const WString path = dir_.File("") + WTEXT("gr\u00FC\u00DF \u6F22 \U0001F600.tarn");
    ASSERT_NE(OpenFile(path, Disposition::CreateNew), nullptr) << LastError();
    EXPECT_EQ(ProbePath(path.c_str()), 0u);
    EXPECT_EQ(DeleteFileByPath(path.c_str()), 0u);
    EXPECT_EQ(ProbePath(path.c_str()), kErrorFileNotFound);
}

TEST_F(PageFileTest, ProbesAndDeletesByPath) {
    EXPECT_EQ(ProbePath(dir_.File("none/f").c_str()), kErrorPathNotFound);
    EXPECT_EQ(ProbePath(dir_.File("").c_str()), 0u) << "a folder is something";
    EXPECT_EQ(DeleteFileByPath(path_.c_str()), kErrorFileNotFound);
    EXPECT_EQ(DeleteFileByPath(dir_.File("none/f").c_str()), kErrorPathNotFound);
    EXPECT_EQ(DeleteFileByPath(dir_.File("").c_str()), kErrorAccessDenied);
}

TEST_F(PageFileTest, ClosesTheFileThatThereIsNoMemoryFor) {
    const Handle handle = OpenFileHandle(path_.c_str(), false,
                                         static_cast<uint32_t>(Disposition::CreateNew), nullptr);
    ASSERT_TRUE(IsValid(handle));
    {
        const support::FailingHeap heap(1);
        EXPECT_EQ(AdoptFileHandle(handle, path_.c_str()), nullptr);
        EXPECT_EQ(LastError(), kErrorOutOfMemory);
    }
    // On Windows the open file could not be deleted; elsewhere the sanitizer would see the leak.
    EXPECT_EQ(DeleteFileByPath(path_.c_str()), 0u);
}

}  // namespace
