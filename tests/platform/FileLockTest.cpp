// SPDX-License-Identifier: MIT
#include "platform/FileLock.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <thread>

#include "platform/Pipe.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/OpenFile.h"
#include "tests/support/TempDir.h"

namespace {

using namespace platform;
using Result = FileLock::Result;

// A file with its lock; `path` may be any of its names.
struct Locked {
    explicit Locked(const WString& path, bool readOnly = false) {
        file = support::OpenFile(path, Disposition::OpenExisting, readOnly);
        lock = std::make_unique<FileLock>(file.get(), nullptr);
        lock->Join();
    }
    Result Take(uint32_t milliseconds = 0) { return lock->Acquire(milliseconds, nullptr); }

    std::unique_ptr<PageFile> file;
    std::unique_ptr<FileLock> lock;
};

WString MadeFile(const support::TempDir& dir) {
    support::WriteBytes(dir / "f", {1, 2, 3});
    return dir.File("f");
}

// hold PATH MILLISECONDS: takes the lock again and again for that time, and tells of the first one
// by a file beside it.
const support::ChildRole kHold("hold-file", [](const std::vector<std::string>& arguments) {
    Locked locked(FromUtf8(arguments[0]));
    for (bool first = true;; first = false) {
        if (locked.Take(60000) != Result::Granted) return 1;
        if (first) support::WriteBytes(arguments[0] + ".held", {1});
        SleepMilliseconds(static_cast<uint32_t>(std::stoul(arguments[1])));
        locked.lock->Release();
    }
});
const support::ChildRole kTry("try-file", [](const std::vector<std::string>& arguments) {
    return static_cast<int>(Locked(FromUtf8(arguments[0])).Take());
});

Result TakeInThread(Locked& locked) {
    Result result = Result::Failed;
    std::thread([&] {
        result = locked.Take();
        if (result == Result::Granted) locked.lock->Release();
    }).join();
    return result;
}

TEST(FileLock, NestsOnItsThreadAndExcludesTheOthers) {
    const support::TempDir dir;
    Locked one(MadeFile(dir));
    ASSERT_EQ(one.Take(), Result::Granted);
    ASSERT_EQ(one.Take(), Result::Granted);
    EXPECT_EQ(one.lock->Depth(), 2u);
    EXPECT_EQ(TakeInThread(one), Result::TimedOut);
    bool released = true;
    std::thread([&] { released = one.lock->Release(); }).join();
    EXPECT_FALSE(released);
    EXPECT_TRUE(one.lock->Release());
    EXPECT_TRUE(one.lock->IsMine());
    EXPECT_TRUE(one.lock->Release());
    EXPECT_FALSE(one.lock->Release());
    EXPECT_EQ(TakeInThread(one), Result::Granted);
}

TEST(FileLock, IsOneForAllOpeningsWhateverTheyCallTheFile) {
    const support::TempDir dir;
    Locked one(MadeFile(dir));
    std::filesystem::create_hard_link(dir / "f", dir / "link");
    Locked other(dir.File("link"));
    ASSERT_EQ(one.Take(), Result::Granted);
    EXPECT_EQ(other.Take(60000), Result::OwnWait) << "at once, for it would wait for itself";
    EXPECT_EQ(TakeInThread(other), Result::TimedOut);
    EXPECT_TRUE(one.lock->Release());
    EXPECT_EQ(other.Take(), Result::Granted);
}

TEST(FileLock, PassesOnFromAThreadThatEndsAndAnOpeningThatCloses) {
    const support::TempDir dir;
    Locked one(MadeFile(dir));
    std::thread([&] { ASSERT_EQ(one.Take(), Result::Granted); }).join();
    Locked other(dir.File("f"));
    EXPECT_EQ(other.Take(), Result::OwnerDied);
    EXPECT_FALSE(one.lock->IsHeld());
    other.lock.reset();
    EXPECT_EQ(one.Take(), Result::Granted);
}

TEST(FileLock, KeepsProcessesApartAndPassesOnFromAKilledOne) {
    const support::TempDir dir;
    const WString path = MadeFile(dir);
    support::ChildProcess holder("hold-file", {ToUtf8(path), "60000"});
    ASSERT_TRUE(support::Eventually([&] { return std::filesystem::exists(dir / "f.held"); }));
    Locked one(path);
    EXPECT_EQ(one.Take(50), Result::TimedOut);
    EXPECT_TRUE(one.file->IsMarkedElsewhere());
    holder.Kill();
    EXPECT_EQ(one.Take(5000), Result::Granted);
    EXPECT_EQ(support::ChildProcess("try-file", {ToUtf8(path)}).Wait(),
              static_cast<int>(Result::TimedOut));
}

TEST(FileLock, ComesInTurnToThoseWhoWait) {
    const support::TempDir dir;
    const WString path = MadeFile(dir);
    support::ChildProcess grabber("hold-file", {ToUtf8(path), "20"});  // longer than anybody looks
    ASSERT_TRUE(support::Eventually([&] { return std::filesystem::exists(dir / "f.held"); }));
    Locked one(path);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(one.Take(10000), Result::Granted) << i;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));  // the other one waits again
        one.lock->Release();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(FileLock, OfAReaderKeepsNoOtherProcessFromTheFile) {
    const support::TempDir dir;
    const WString path = MadeFile(dir);
    Locked reader(path, true);
    ASSERT_EQ(reader.Take(), Result::Granted);
    EXPECT_EQ(support::ChildProcess("try-file", {ToUtf8(path)}).Wait(),
              static_cast<int>(Result::Granted));
}

}  // namespace
