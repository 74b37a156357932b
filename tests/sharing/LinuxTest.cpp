// SPDX-License-Identifier: MIT
// Users who may and who may not, strangers and full disks, on the system that has them.
#include <unistd.h>

#include "tests/faults/Registry.h"
#include "tests/sharing/Content.h"
#include "tests/support/FullDisk.h"

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
        const Tally tally =
            troupe.Start("set-from", {troupe.Folder(), path, "x", "5", "0"})->FinishWell(true);
        EXPECT_TRUE(tally.done == 5 && tally.busy == 0) << tally.Line();
        ExpectNumbered(path, "x", 5);
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
        troupe.Start("set-from", {troupe.Folder(), path, number, "200", moment}, user);
    };
    start("0", kNobody);
    start("1", kSomebody);
    start("2", "");
    troupe.FinishWell();
    for (const char* number : {"0", "1", "2"}) ExpectNumbered(path, number, 200);
    ExpectSound(path);
}

TEST_F(LinuxUsers, AStrangerWhoLocksTheFileForReadingHoldsNobodyUp) {
    Player* stranger = troupe.Start("lock-for-reading", {troupe.File("ready"), path}, kNobody);
    ASSERT_TRUE(WaitForFile(troupe.File("ready")));
    ExpectSetsInGoodTime();
    stranger->Kill();
}

TEST_F(LinuxUsers, WhoMayOnlyReadTakesALockOfTypeThreeThatHoldsNobodyUp) {
    const Words words = {path, troupe.File("ready"), troupe.File("go")};
    Player* reader = troupe.Start("keep-read-lock", words, kNobody);
    ASSERT_TRUE(WaitForFile(words[1]));
    ExpectSetsInGoodTime();
    std::ofstream(words[2]) << "go";
    reader->FinishWell(true);
    ExpectSound(path);
}

// Does steps until `failures` of them fail, each of which must leave the content before it.
void StepUntilFull(Store* store, uint32_t seed, int failures, Key* content) {
    while (failures > 0 && !testing::Test::HasFailure()) {
        faults::Steps steps(++seed, *content);
        const faults::Step step = steps.Next();
        if (Apply(step, store) == FSSTATUS_SUCCESS) {
            *content = steps.Content();
            continue;
        }
        --failures;
        Key found;
        ASSERT_EQ(ReadAll(store->handle, &found), FSSTATUS_SUCCESS);
        EXPECT_EQ(faults::JudgeCut(*content, step, found), "");
        EXPECT_TRUE(found != steps.Content() || found == *content) << "a failure was done";
        *content = found;
    }
}

TEST_F(Linux, AFullDiskLeavesEveryValueOldOrNew) {
    for (int seed = 1; seed <= (LongForm() ? 40 : 3); ++seed) {
        Key content, found;
        {
            Store store(path);
            ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
            ASSERT_EQ(ReadAll(store.handle, &content), FSSTATUS_SUCCESS);
            const support::FullDisk full(path, 20000);
            StepUntilFull(&store, static_cast<uint32_t>(seed) * 10000, 25, &content);
            EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
            EXPECT_EQ(ReadAll(store.handle, &found), FSSTATUS_SUCCESS);
            EXPECT_TRUE(found == content) << "without a lock another content is read";
            EXPECT_EQ(store.Close(), FSSTATUS_SUCCESS);
        }
        EXPECT_EQ(ReadAll(Store(path).handle, &found), FSSTATUS_SUCCESS);
        EXPECT_TRUE(found == content) << "the file holds another content";
        ExpectSound(path, true);
    }
}

TEST_F(Linux, AChangeThatFailedIsNotWrittenOverThoseOfOthers) {
    Store store(path);
    Key content;
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    ASSERT_EQ(ReadAll(store.handle, &content), FSSTATUS_SUCCESS);
    {
        const support::FullDisk full(path, 4000);
        StepUntilFull(&store, 7, 1, &content);
    }
    EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
    troupe.Start("set-from", {troupe.Folder(), path, "x", "300", "0"})->FinishWell();
    EXPECT_EQ(ReadAll(store.handle, &content), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Close(), FSSTATUS_SUCCESS);
    ExpectNumbered(path, "x", 300);
    ExpectSound(path, true);
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
        replaced ? fs::rename(other, path) : static_cast<void>(fs::remove(path));
        EXPECT_NE(store.Lock(), FSSTATUS_SUCCESS);
        EXPECT_NE(ChangeShared(&store, 0, 1), FSSTATUS_SUCCESS);
        store.Close();
        EXPECT_EQ(fs::exists(path), replaced);
        EXPECT_TRUE(!replaced || support::ReadBytes(path) == theirs);
    }
}

}  // namespace
}  // namespace sharing
