// What the seam promises on Linux alone.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <csignal>
#include <filesystem>
#include <thread>

#include "platform/Clock.h"
#include "platform/Resources.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/OpenFile.h"
#include "tests/support/TempDir.h"

namespace {

using namespace platform;
namespace fs = std::filesystem;

TEST(LinuxPageFile, WritesUpToTheLimitAndTellsThatTheDiskIsFull) {
    const support::TempDir dir;
    auto file = support::OpenFile(dir.File("f"), Disposition::CreateNew);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit tight = {700, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &tight);
    const std::string page(512, 'x');
    const void* buffers[] = {page.data(), page.data()};
    uint32_t done = 0;
    const Error error = file->Write(0, buffers, 2, 512, &done);
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(error, kErrorDiskFull);
    EXPECT_EQ(done, 700u);
    uint64_t size = 0;
    file->Size(&size);
    EXPECT_EQ(size, 700u);
}

TEST(LinuxPageFile, TakesABackslashAsALetterAndRefusesWhatHasNoUtf8) {
    const support::TempDir dir;
    ASSERT_NE(support::OpenFile(dir.File("") + WTEXT("a\\b"), Disposition::CreateNew), nullptr);
    EXPECT_TRUE(fs::exists(dir / "a\\b"));
    const WString lone = dir.File("") + WString{0xD800};
    EXPECT_EQ(support::OpenFile(lone, Disposition::CreateNew), nullptr);
    EXPECT_EQ(LastError(), kErrorInvalidName);
    const WString longName = dir.File("") + WString(300, 'n');
    EXPECT_EQ(support::OpenFile(longName, Disposition::CreateNew), nullptr);
    EXPECT_EQ(LastError(), kErrorFilenameTooLong);
    EXPECT_EQ(ProbePath(WString(70000, 'n').c_str()), kErrorFilenameTooLong);
}

TEST(LinuxPageFile, RefusesAPipeWithoutWaitingForIt) {
    const support::TempDir dir;
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(support::OpenFile(dir.File("pipe"), Disposition::OpenExisting, true), nullptr);
    EXPECT_EQ(LastError(), kErrorAccessDenied);
}

TEST(LinuxPageFile, TakesAFileInThePlaceOfAFolderForAMissingPath) {
    const support::TempDir dir;
    support::WriteBytes(dir / "f", {1});
    EXPECT_EQ(support::OpenFile(dir.File("f/g"), Disposition::OpenExisting), nullptr);
    EXPECT_EQ(LastError(), kErrorPathNotFound);
}

}  // namespace
