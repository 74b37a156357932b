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

WString UniqueName() {
    return FromUtf8("zrfs-test-linux-" + std::to_string(ProcessId()) + "-" +
                    std::to_string(PerformanceCounter()));
}

size_t PagesOf(const WString& name) {
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator("/dev/shm")) {
        const std::string file = entry.path().filename().string();
        // The file name carries the end of the object's name with its marks made plain.
        std::string end = ToUtf8(name).substr(name.size() > 40 ? name.size() - 40 : 0);
        for (char& c : end) c = isalnum(static_cast<unsigned char>(c)) ? c : '_';
        if (file.ends_with(end)) ++count;
    }
    return count;
}

// try NAME: 0 when the mutex is granted at once, 1 when it was abandoned, 2 when it is held.
const support::ChildRole kTry("try", [](const std::vector<std::string>& arguments) {
    const Handle mutex = CreateNamedMutex(FromUtf8(arguments[0]).c_str(), nullptr);
    const WaitResult result = WaitForMutex(mutex, 0);
    CloseNamedMutex(mutex);
    return result == WaitResult::Granted ? 0 : result == WaitResult::Abandoned ? 1 : 2;
});

int TryInChild(const WString& name) {
    return support::ChildProcess("try", {ToUtf8(name)}).Wait();
}

TEST(LinuxMutex, IsFreeForOthersWhenItsLastHandleCloses) {
    const WString name = UniqueName();
    const Handle mutex = CreateNamedMutex(name.c_str(), nullptr);
    ASSERT_EQ(WaitForMutex(mutex, 0), WaitResult::Granted);
    ASSERT_EQ(WaitForMutex(mutex, 0), WaitResult::Granted);
    EXPECT_EQ(TryInChild(name), 2);
    CloseNamedMutex(mutex);
    EXPECT_EQ(TryInChild(name), 0);
}

TEST(LinuxMutex, StaysMappedWhileAnotherThreadOwnsIt) {
    const WString name = UniqueName();
    const Handle mutex = CreateNamedMutex(name.c_str(), nullptr);
    std::atomic<int> step{0};
    std::thread owner([&] {
        WaitForMutex(mutex, 0);
        step = 1;
        support::Eventually([&] { return step == 2; });
    });
    ASSERT_TRUE(support::Eventually([&] { return step == 1; }));
    CloseNamedMutex(mutex);
    EXPECT_EQ(TryInChild(name), 2);
    step = 2;
    owner.join();
    EXPECT_EQ(TryInChild(name), 1) << "the end of the owning thread frees it";
    const Handle again = CreateNamedMutex(name.c_str(), nullptr);
    EXPECT_NE(WaitForMutex(again, 0), WaitResult::TimedOut);
    CloseNamedMutex(again);
    EXPECT_EQ(PagesOf(name), 0u);
}

TEST(LinuxSharedPage, LeavesNoFileBehind) {
    const WString name = UniqueName();
    const Handle mutex = CreateNamedMutex(name.c_str(), nullptr);
    const Handle word = CreateSharedWord(name.c_str(), nullptr);
    EXPECT_EQ(PagesOf(name), 2u);
    CloseNamedMutex(mutex);
    EXPECT_EQ(PagesOf(name), 1u);
    uint32_t* view = MapSharedWord(word);
    CloseSharedWord(word);
    *view = 3;
    UnmapSharedWord(view);
    EXPECT_EQ(PagesOf(name), 0u);
}

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
