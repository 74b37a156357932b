// SPDX-License-Identifier: MIT
// Random damage to containers of all shapes: whatever it was, all that is done with them ends after
// work that the page count bounds, and a repair keeps its promise.
#include <gtest/gtest.h>

#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/faults/Registry.h"
#include "tests/support/Damage.h"
#include "tests/support/MemoryFiles.h"

namespace faults {
namespace {

using namespace support::container;

enum class Log { None, Beside, InFile, Chained };
struct Shape {
    uint32_t pageSize;
    Log log;
};

class DamageTest : public testing::TestWithParam<Shape> {
  protected:
    // A container of one seed, and the log beside it if it has one.
    std::pair<Bytes, Bytes> Make(uint32_t seed) {
        form_ = {GetParam().pageSize, seed % 5 == 0};
        form_.freePages = seed % 4;
        form_.logPending = GetParam().log != Log::None;
        Builder builder(form_, RichTree(form_.pageSize));
        const uint32_t header = builder.At(u"\\small").headerPage;
        const std::vector<Bytes> log =
            SequentialLog(form_, {7}, {{32, header, 7, builder.PageBytes(header), {}}});
        if (GetParam().log == Log::InFile) builder.AddInFileLog(log, 10);
        if (GetParam().log == Log::Chained) {
            const uint32_t page = builder.AddPage(DataPage);
            builder.AddChainedLog({page}, 1);
        }
        return {builder.Finish(), GetParam().log == Log::Beside ? Joined(log) : Bytes()};
    }

    MemoryContainer container_;
    Form form_;
};

TEST_P(DamageTest, IsMendedOnceAndForAll) {
    const uint32_t rounds = Rounds(100);
    uint32_t lost = 0, refused = 0;
    for (uint32_t seed = 1; seed <= rounds && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        auto [bytes, log] = Make(seed);
        Damage damage(bytes, form_.pageSize, form_.foreign, seed);
        for (uint32_t i = 0; i <= seed % 7; ++i) damage.Strike();
        container_.Put(bytes, log);
        container_.ExpectBoundedWork(form_.pageSize);
        container_.Put(bytes, log);
        const CheckOutcome check = container_.Check();
        EXPECT_EQ(container_.Get(), bytes);
        CheckOutcome repair = container_.Check(kRepair);
        if (repair.status == storage::kNotContainer) {
            ++lost;
            continue;
        }
        // A log that damage made nonsense of is not replayed, and nothing is done behind it until
        // it is given up.
        if (repair.status == storage::kCorrupt && GetParam().log != Log::None) {
            ++refused;
            EXPECT_FALSE(check.FoundNothing());
            EXPECT_EQ(container_.Get(), bytes);
            repair = container_.Check(kRepair | storage::kCheckDiscardLog);
            if (repair.status == storage::kNotContainer) continue;
        }
        ASSERT_EQ(repair.status, storage::kOk);
        EXPECT_EQ(check.status, storage::kOk);
        container_.ExpectPromisesKept();
    }
    EXPECT_LT(lost, rounds / 4);
    EXPECT_LT(refused, rounds / 2);
}

TEST(DamagedStore, IsReadableAsAWholeOnceItIsRepaired) {
    support::TempDir dir;
    const std::filesystem::path path = dir / "s.fbr";
    {
        Store store(dir.File("s.fbr"));
        ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
        std::mt19937 random(3);
        Key model;
        for (int i = 0; i < 150; ++i) {
            const Step step = RandomStep(&random, model);
            if (Apply(step, &model)) Apply(step, &store);
        }
        for (const char* name : {"k1", "k:2", "a name that is longer than its entry has room"})
            store.Set(store.Make("\\k0"), name, Bytes(30, 7));
    }
    const Bytes sound = support::ReadBytes(path);
    support::MemoryFiles memory;
    const uint32_t rounds = Rounds(150);
    uint32_t opened = 0;
    for (uint32_t seed = 1; seed <= rounds && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Bytes bytes = sound;
        Damage damage(bytes, 512, false, seed);
        for (uint32_t i = 0; i <= seed % 9; ++i) damage.Strike();
        memory.Put(path, bytes);
        const CheckOutcome check = CheckContainer(path, kDeepCheck);
        EXPECT_EQ(memory.Get(path), bytes);
        const CheckOutcome repair = CheckContainer(path, kRepair);
        EXPECT_EQ(check.Findings(), repair.Findings());
        if (repair.status != storage::kOk) continue;
        // A store is known by its version; without one it is a container like any other.
        if (ReadContainer(memory.Get(path)).At(u"\\FBRVersion") == nullptr) continue;
        Store store(dir.File("s.fbr"));
        if (store.status == FSSTATUS_VERSION_MISMATCH) continue;
        ASSERT_EQ(store.status, FSSTATUS_SUCCESS);
        ++opened;
        Key all;
        EXPECT_EQ(support::ReadAll(store.handle, &all), FSSTATUS_SUCCESS) << "all that is listed";
    }
    EXPECT_GT(opened, rounds / 3);
}

INSTANTIATE_TEST_SUITE_P(Shapes, DamageTest,
                         testing::Values(Shape{256, Log::None}, Shape{512, Log::None},
                                         Shape{4096, Log::None}, Shape{512, Log::Beside},
                                         Shape{256, Log::InFile}, Shape{512, Log::Chained}));

}  // namespace
}  // namespace faults
