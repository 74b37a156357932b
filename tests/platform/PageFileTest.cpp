// SPDX-License-Identifier: MIT
#include "platform/PageFile.h"

#include <gtest/gtest.h>
#ifndef _WIN32
#include <sys/stat.h>

#include "tests/support/FullDisk.h"
#endif

#include <filesystem>
#include <numeric>

#include "platform/Resources.h"
#include "platform/Text.h"
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

TEST_F(PageFileTest, ReadsShortAtTheEndWithoutAnErrorAndIsCutAndGrows) {
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
    for (const uint64_t length : {2, 4}) EXPECT_EQ(file->Cut(length), 0u);
    EXPECT_EQ(file->Flush(), 0u);
    EXPECT_EQ(support::ReadBytes(dir_ / "f.tarn"), (support::Bytes{'a', 'b', 0, 0}));
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

TEST_F(PageFileTest, ReachesOffsetsBeyond32Bits) {
    auto file = Create();
    ASSERT_EQ(file->Cut(0x140000000), 0u);
    // The low half of the second position is the value that a failed seek would
    // give.
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

TEST_F(PageFileTest, IsOpenedProbedAndDeletedOrTheReasonTold) {
    support::WriteBytes(dir_ / "there", {1, 2, 3});
    const WString script = dir_.File("") + WTEXT("gr\u00FC\u00DF \u6F22 \U0001F600.tarn");
    using D = Disposition;
    const struct {
        WString path;
        D how;
        Error opened, probed, deleted;
    } cases[] = {
        {path_, D::OpenExisting, kErrorFileNotFound, kErrorFileNotFound, kErrorFileNotFound},
        {path_, D::CreateNew, 0, 0, 0},
        {script, D::CreateNew, 0, 0, 0},
        {dir_.File("there"), D::CreateNew, kErrorFileExists, 0, 0},
        {dir_.File("none/f"), D::CreateNew, kErrorPathNotFound, kErrorPathNotFound,
         kErrorPathNotFound},
        {dir_.File("none/f"), D::OpenExisting, kErrorPathNotFound, kErrorPathNotFound,
         kErrorPathNotFound},
        {{}, D::OpenExisting, kErrorPathNotFound, kErrorPathNotFound, kErrorPathNotFound},
        // A folder is something, and no file.
        {dir_.File("."), D::OpenExisting, kErrorAccessDenied, 0, kErrorAccessDenied},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(ToUtf8(c.path));
        for (const bool readOnly : {false, true}) {
            if (readOnly && c.how != D::OpenExisting) continue;
            EXPECT_EQ(OpenFile(c.path, c.how, readOnly) != nullptr, c.opened == 0);
            if (c.opened != 0) {
                EXPECT_EQ(LastError(), c.opened);
            }
        }
        EXPECT_EQ(ProbePath(c.path.c_str()), c.probed);
        EXPECT_EQ(DeleteFileByPath(c.path.c_str()), c.deleted);
        EXPECT_EQ(ProbePath(c.path.c_str()), c.deleted == 0 ? kErrorFileNotFound : c.probed);
    }
    EXPECT_EQ(AdoptFileHandle(nullptr, path_.c_str()), nullptr);
    for (const auto& [how, size] : {std::pair(D::OpenExisting, 3u), {D::CreateAlways, 0u}}) {
        support::WriteBytes(dir_ / "there", {1, 2, 3});
        ASSERT_NE(OpenFile(dir_.File("there"), how), nullptr);
        EXPECT_EQ(support::ReadBytes(dir_ / "there").size(), size);
    }
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

TEST_F(PageFileTest, ClosesTheFileThatThereIsNoMemoryFor) {
    const Handle handle = OpenFileHandle(path_.c_str(), false,
                                         static_cast<uint32_t>(Disposition::CreateNew), nullptr);
    ASSERT_TRUE(IsValid(handle));
    {
        const support::FailingHeap heap(1);
        EXPECT_EQ(AdoptFileHandle(handle, path_.c_str()), nullptr);
        EXPECT_EQ(LastError(), kErrorOutOfMemory);
    }
    // On Windows the open file could not be deleted; elsewhere the sanitizer
    // would see the leak.
    EXPECT_EQ(DeleteFileByPath(path_.c_str()), 0u);
}

#ifndef _WIN32
TEST_F(PageFileTest, WritesUpToTheLimitAndTellsThatTheDiskIsFull) {
    auto file = Create();
    const support::FullDisk full(dir_ / "f.tarn", 700);
    const std::string page(512, 'x');
    const void* buffers[] = {page.data(), page.data()};
    EXPECT_EQ(file->Write(0, buffers, 2, 512, &done_), kErrorDiskFull);
    EXPECT_EQ(done_, 700u);
    EXPECT_EQ(std::filesystem::file_size(dir_ / "f.tarn"), 700u);
}

TEST_F(PageFileTest, KnowsTheNamesOfTheSystem) {
    ASSERT_EQ(mkfifo((dir_ / "pipe").c_str(), 0600), 0);
    support::WriteBytes(dir_ / "f", {1});
    const struct {
        WString name;
        Error error;
    } cases[] = {
        {WTEXT("a\\b"), kErrorFileNotFound},  // a backslash is a letter
        {WString{0xD800}, kErrorInvalidName}, {WString(300, 'n'), kErrorFilenameTooLong},
        {WTEXT("pipe"), kErrorAccessDenied},  // which nobody writes to
        {WTEXT("f/g"), kErrorPathNotFound},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(OpenFile(dir_.File("") + c.name, Disposition::OpenExisting, true), nullptr);
        EXPECT_EQ(LastError(), c.error) << ToUtf8(c.name);
    }
    EXPECT_EQ(ProbePath(WString(70000, 'n').c_str()), kErrorFilenameTooLong);
    // Nothing lies at the start of a process's memory.
    const auto memory = OpenFile(WTEXT("/proc/self/mem"), Disposition::OpenExisting, true);
    EXPECT_NE(memory->Read(0, buffer_, 16, &done_), 0u);
    EXPECT_EQ(done_, 0u);
}
#else
TEST_F(PageFileTest, WritesManyBuffersWithoutMemoryForARun) {
    auto file = Create();
    const support::FailingHeap heap(1, true);
    const void* buffers[] = {"ab", "cd"};
    ASSERT_EQ(file->Write(0, buffers, 2, 2, &done_), 0u);
    EXPECT_EQ(done_, 4u);
    EXPECT_EQ(support::ReadBytes(dir_ / "f.tarn"), (support::Bytes{'a', 'b', 'c', 'd'}));
}
#endif

}  // namespace
