// Processes that are killed at any moment of a change. Nobody repairs anything: the next one takes
// the lock and finds every value as it was before the change or after it.
#include <chrono>
#include <thread>

#include "tests/sharing/Victim.h"

namespace sharing {
namespace {

constexpr int64_t kGoodTime = 5000;

void SleepMicroseconds(int64_t time) {
    std::this_thread::sleep_for(std::chrono::microseconds(time));
}

class Kills : public testing::Test {
  protected:
    // What the next user finds; the lock is had in good time.
    void Take(Key* found) {
        const int64_t began = NowMs();
        Store store(path);
        ASSERT_EQ(store.status, FSSTATUS_SUCCESS);
        ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
        EXPECT_LT(NowMs() - began, kGoodTime);
        ASSERT_EQ(ReadAll(store.handle, found), FSSTATUS_SUCCESS) << "all that is listed is there";
        ASSERT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
        ASSERT_EQ(store.Close(), FSSTATUS_SUCCESS);
    }

    void KillOne(uint32_t seed, Key* content) {
        const std::string progress = troupe.File("progress");
        std::filesystem::remove(progress);
        Player* victim = troupe.Start(
            "sharing-victim", {path, progress, std::to_string(seed), seed % 2 ? "often" : "once"});
        const uint64_t goal = 1 + random() % 60;
        ASSERT_TRUE(support::Eventually(
            [&] { return StepsDone(progress) >= goal || victim->HasReported(); }));
        if (victim->HasReported())
            FAIL() << "it ended by itself: " << victim->Finish().value_or(Tally()).Line();
        SleepMicroseconds(random() % 2000);
        victim->Kill();
        const uint64_t done = StepsDone(progress);
        Steps steps(seed, *content);
        for (uint64_t i = 0; i < done; ++i) steps.Next();
        const Key before = steps.Content();
        Key found;
        ASSERT_NO_FATAL_FAILURE(Take(&found));
        ASSERT_EQ(JudgeCut(before, steps.Next(), found), "") << "after " << done << " steps";
        *content = found;
    }

    // Keys and values, and as many free pages among theirs.
    void MakeFragmented(Key* content) {
        Store store(path);
        ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
        for (uint32_t i = 0; i < 160; ++i) {
            const std::string key = "\\key" + std::to_string(i % 40) + "\\" + std::to_string(i);
            for (const char* name : {"x", "y"})
                ASSERT_EQ(store.Set(key, name, Sealed(key, name, {0, i}, SizeOf(i))),
                          FSSTATUS_SUCCESS);
        }
        for (uint32_t i = 0; i < 160; i += 2) {
            const std::string key = "\\key" + std::to_string(i % 40) + "\\" + std::to_string(i);
            ASSERT_EQ(FBR_DeleteDirNamedEx(Wide(key).c_str(), store.handle), FSSTATUS_SUCCESS);
        }
        ASSERT_EQ(ReadAll(store.handle, content), FSSTATUS_SUCCESS);
    }

    Troupe troupe;
    const std::string path = troupe.File("s.fbr");
    std::mt19937 random{20};
};

// Sets and overwrites of 0 to 12,000 bytes, deletes, renames, keys made beside values of their
// name, and now and then a compaction.
TEST_F(Kills, InTheMiddleOfAnyChangeLeaveItOldOrNew) {
    Key content;
    for (uint32_t seed = 0; seed < (LongForm() ? 900u : 40u); ++seed) {
        SCOPED_TRACE("kill " + std::to_string(seed));
        ASSERT_NO_FATAL_FAILURE(KillOne(seed, &content));
        ASSERT_NO_FATAL_FAILURE(ExpectOnlyLostPages(path));
        ASSERT_FALSE(HasFailure());
    }
}

// COMPACT STORE: one compaction under the lock.
void CompactOnce(const Words& words, Tally* tally) {
    Store store(words[0]);
    uint32_t done = 0;
    if (!tally->Went(store.Lock(), "lock")) return;
    tally->Did(FBR_Compact(store.handle, &done), "compact");
    tally->Went(store.Unlock(), "release");
    tally->Went(store.Close(), "close");
}
const support::ChildRole kCompactOnce("sharing-compact-once", Role<CompactOnce>);

TEST_F(Kills, InACompactionLoseNothing) {
    Key content;
    ASSERT_NO_FATAL_FAILURE(MakeFragmented(&content));
    const Bytes fragmented = support::ReadBytes(path);
    const auto began = std::chrono::steady_clock::now();
    troupe.Start("sharing-compact-once", {path});
    troupe.FinishWell();
    const auto took = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - began);
    EXPECT_LT(std::filesystem::file_size(path), fragmented.size());
    for (int kill = 0; kill < (LongForm() ? 100 : 12); ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill));
        support::WriteBytes(path, fragmented);
        Player* victim = troupe.Start("sharing-compact-once", {path});
        SleepMicroseconds(random() % took.count());
        victim->Kill();
        Key found;
        ASSERT_NO_FATAL_FAILURE(Take(&found));
        ASSERT_TRUE(found == content);
        ExpectOnlyLostPages(path);
        ASSERT_FALSE(HasFailure());
    }
}

}  // namespace
}  // namespace sharing
