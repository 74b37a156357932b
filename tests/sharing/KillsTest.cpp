// SPDX-License-Identifier: MIT
// Processes that are killed at any moment of a change. Nobody repairs anything: the next one takes
// the lock and finds every value as it was before the change or after it.
#include "tests/faults/Registry.h"
#include "tests/sharing/Content.h"

namespace sharing {
namespace {

using faults::StepsDone;

constexpr int64_t kGoodTime = 5000;

// STORE PROGRESS SEED LOCKING: takes the steps of a seed until it is killed or one fails, with a
// byte in a file for each that was done; under one lock, or with a lock for each.
const Role kVictim("victim", [](const Words& words, Tally* tally) {
    Store store(words[0]);
    Key start;
    if (!tally->Went(store.Lock(), "lock") || !tally->Went(ReadAll(store.handle, &start), "walk"))
        return;
    faults::Steps steps(static_cast<uint32_t>(std::stoul(words[2])), start);
    std::ofstream progress(words[1]);
    for (const bool often = words[3] == "often";;) {
        if (often && !tally->Went(store.Unlock(), "release")) return;
        if (often && !tally->Went(store.Lock(), "lock")) return;
        if (!tally->Did(Apply(steps.Next(), &store), "step")) return;
        progress.put('.').flush();
    }
});

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
        ASSERT_EQ(store.Close(), FSSTATUS_SUCCESS);
    }

    void KillOne(uint32_t seed, Key* content) {
        const std::string progress = troupe.File("progress");
        std::filesystem::remove(progress);
        Player* victim = troupe.Start(
            "victim", {path, progress, std::to_string(seed), seed % 2 ? "often" : "once"});
        const uint64_t goal = 1 + random() % 60;
        ASSERT_TRUE(support::Eventually(
            [&] { return StepsDone(progress) >= goal || victim->HasReported(); }));
        if (victim->HasReported())
            FAIL() << "it ended by itself: " << victim->Finish().value_or(Tally()).Line();
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
        victim->Kill();
        const uint64_t done = StepsDone(progress);
        faults::Steps steps(seed, *content);
        for (uint64_t i = 0; i < done; ++i) steps.Next();
        const Key before = steps.Content();
        Key found;
        ASSERT_NO_FATAL_FAILURE(Take(&found));
        ASSERT_EQ(faults::JudgeCut(before, steps.Next(), found), "")
            << "after " << done << " steps";
        *content = found;
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
        ASSERT_NO_FATAL_FAILURE(ExpectSound(path, true));
        ASSERT_FALSE(HasFailure());
    }
}

}  // namespace
}  // namespace sharing
