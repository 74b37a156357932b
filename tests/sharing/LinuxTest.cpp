// Users who may and who may not, strangers, full disks and interrupts, on the system that has them.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <thread>

#include "tests/sharing/Content.h"
#include "tests/support/RunProcess.h"

namespace sharing {
namespace {

namespace fs = std::filesystem;

constexpr const char* kNobody = "65534";
constexpr const char* kSomebody = "54321";

class Linux : public testing::Test {
  protected:
    void SetUp() override { MakeShared(path, 1); }
    void Mode(int mode) { fs::permissions(path, static_cast<fs::perms>(mode)); }
    // Sets values with an opening and a lock for each, which must not be held up.
    void ExpectSetsInGoodTime() {
        const std::optional<Tally> tally =
            troupe.Start("sharing-set-from", {troupe.Folder(), path, "x", "5", "0"})->FinishSoon();
        ASSERT_TRUE(tally.has_value()) << "it waits";
        EXPECT_TRUE(tally->done == 5 && tally->Good() && tally->busy == 0) << tally->Line();
    }

    Troupe troupe;
    const std::string path = troupe.File("stranger.fbr");
};

// For tests whose roles change their user.
class LinuxUsers : public Linux {
  protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "needs the right to change the user";
        Linux::SetUp();
        Mode(0644);
    }
};

TEST_F(LinuxUsers, WhoMayWriteMeetOneLock) {
    Mode(0666);
    const std::string moment = std::to_string(NowMs() + 100);
    const auto start = [&](const char* number, const char* user) {
        troupe.Start("sharing-set-from", {troupe.Folder(), path, number, "200", moment}, user);
    };
    start("0", kNobody);
    start("1", kSomebody);
    start("2", "");
    troupe.FinishWell();
    for (const char* number : {"0", "1", "2"}) ExpectValuesFrom(path, number, 200);
    ExpectSound(path);
}

// Files that came up in the folders that all users share while this process had the store locked.
Words SharedFilesOf(const std::string& path) {
    Store store(path);
    EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    Words files;
    for (const char* folder : {"/dev/shm", "/tmp"})
        for (const auto& entry : fs::directory_iterator(folder))
            if (entry.path().string().find("STRANGER") != std::string::npos &&
                entry.path().string().find(std::to_string(getpid())) != std::string::npos)
                files.push_back(entry.path().string());
    return files;
}

TEST_F(LinuxUsers, AStrangerWhoLaysFilesInTheWayHoldsNobodyUp) {
    Words words = {troupe.File("ready")};
    for (const std::string& file : SharedFilesOf(path)) words.push_back(file);
    Player* stranger = troupe.Start("sharing-lay-files", words, kNobody);
    ASSERT_TRUE(WaitForFile(words[0]));
    ExpectSetsInGoodTime();
    stranger->Kill();
    for (size_t i = 1; i < words.size(); ++i) fs::remove(words[i]);
    ExpectValuesFrom(path, "x", 5);
}

TEST_F(LinuxUsers, AStrangerWhoLocksTheFileForReadingHoldsNobodyUp) {
    Player* stranger =
        troupe.Start("sharing-lock-for-reading", {troupe.File("ready"), path}, kNobody);
    ASSERT_TRUE(WaitForFile(troupe.File("ready")));
    ExpectSetsInGoodTime();
    stranger->Kill();
    ExpectValuesFrom(path, "x", 5);
}

TEST_F(LinuxUsers, WhoMayOnlyReadTakesALockOfTypeThreeThatHoldsNobodyUp) {
    const Words words = {path, troupe.File("ready"), troupe.File("go")};
    Player* reader = troupe.Start("sharing-keep-read-lock", words, kNobody);
    ASSERT_TRUE(WaitForFile(words[1]));
    ExpectSetsInGoodTime();
    std::ofstream(words[2]) << "go";
    const std::optional<Tally> tally = reader->FinishSoon();
    ASSERT_TRUE(tally.has_value());
    EXPECT_TRUE(tally->Good() && tally->done > 0) << tally->Line();
    ExpectSound(path);
}

TEST_F(Linux, AFullDiskLeavesEveryValueOldOrNew) {
    for (int seed = 1; seed <= (LongForm() ? 40 : 3); ++seed) {
        troupe.Start("sharing-fill", {path, std::to_string(seed * 10000)});
        troupe.FinishWell();
        ExpectOnlyLostPages(path);
    }
}

TEST_F(Linux, AChangeThatFailedIsNotWrittenOverThoseOfOthers) {
    const Words words = {path, troupe.File("ready"), troupe.File("go")};
    Player* failing = troupe.Start("sharing-fail-and-close", words);
    ASSERT_TRUE(WaitForFile(words[1]));
    Player* other = troupe.Start("sharing-set-from", {troupe.Folder(), path, "x", "300", "0"});
    EXPECT_TRUE(other->Finish().value_or(Tally()).Good());
    std::ofstream(words[2]) << "go";
    const std::optional<Tally> tally = failing->Finish();
    ASSERT_TRUE(tally.has_value());
    EXPECT_TRUE(tally->Good()) << tally->Line();
    ExpectValuesFrom(path, "x", 300);
    ExpectOnlyLostPages(path);
}

TEST_F(Linux, AFileThatIsGoneOrReplacedIsToldAtTheNextLock) {
    const std::string other = troupe.File("other.fbr");
    for (const bool replaced : {true, false}) {
        SCOPED_TRACE(replaced);
        MakeShared(other, 1);
        Store store(path);
        ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
        ASSERT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
        const Bytes theirs = support::ReadBytes(other);
        if (replaced) {
            fs::rename(other, path);
        } else {
            fs::remove(path);
        }
        EXPECT_NE(store.Lock(), FSSTATUS_SUCCESS);
        EXPECT_NE(ChangeShared(&store, 0, 1), FSSTATUS_SUCCESS);
        store.Close();
        EXPECT_EQ(fs::exists(path), replaced);
        EXPECT_TRUE(!replaced || support::ReadBytes(path) == theirs);
    }
}

// Starts "fbr compact", and ends it by a signal after a time.
void InterruptCompaction(const std::string& path, int signal, int64_t microseconds) {
    const std::string program = support::ProgramNamed("fbr").string();
    const char* words[] = {program.c_str(), "compact", path.c_str(), nullptr};
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&files, stream, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    ASSERT_EQ(
        posix_spawn(&child, program.c_str(), &files, nullptr, const_cast<char**>(words), environ),
        0);
    posix_spawn_file_actions_destroy(&files);
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
    kill(child, signal);
    waitpid(child, nullptr, 0);
}

TEST_F(Linux, ACompactionThatIsInterruptedOrKilledLosesNothing) {
    Key content;
    {
        Store store(path);
        ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
        for (uint32_t i = 0; i < 500; ++i) {
            const std::string key = "\\k" + std::to_string(i % 40) + "\\" + std::to_string(i);
            ASSERT_EQ(store.Set(key, "v", Sealed(key, "v", {0, i}, SizeOf(i))), FSSTATUS_SUCCESS);
        }
        for (uint32_t i = 0; i < 500; i += 2) {
            const std::string key = "\\k" + std::to_string(i % 40) + "\\" + std::to_string(i);
            ASSERT_EQ(FBR_DeleteDirNamedEx(Wide(key).c_str(), store.handle), FSSTATUS_SUCCESS);
        }
        ASSERT_EQ(ReadAll(store.handle, &content), FSSTATUS_SUCCESS);
    }
    const Bytes fragmented = support::ReadBytes(path);
    const int64_t began = NowMs();
    ASSERT_EQ(support::RunProcess(support::ProgramNamed("fbr"), {"compact", path}).status, 0);
    const int64_t took = (NowMs() - began) * 1000 + 500;
    std::mt19937 random(3);
    for (int round = 0; round < (LongForm() ? 100 : 20); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        support::WriteBytes(path, fragmented);
        InterruptCompaction(path, round % 2 == 0 ? SIGINT : SIGKILL, random() % took);
        Store store(path);
        Key found;
        ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
        ASSERT_EQ(ReadAll(store.handle, &found), FSSTATUS_SUCCESS);
        ASSERT_TRUE(found == content);
        ASSERT_EQ(store.Close(), FSSTATUS_SUCCESS);
        ExpectOnlyLostPages(path);
        ASSERT_FALSE(HasFailure());
    }
}

}  // namespace
}  // namespace sharing
