// SPDX-License-Identifier: MIT
// Random damage to containers of all shapes: whatever it was, all that is done with them ends after
// work that the page count bounds, and a repair keeps its promise.
#include <gtest/gtest.h>

#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/faults/Registry.h"
#include "tests/support/Damage.h"

namespace faults {
namespace {

using namespace support::container;

enum class Log { None, Beside, InFile, Chained };
struct Shape {
    uint32_t pageSize;
    Log log;
    bool store = false;
};

class DamageTest : public testing::TestWithParam<Shape> {
  protected:
    // A container of one seed, and the log beside it if it has one.
    std::pair<Bytes, Bytes> Make(uint32_t seed) {
        form_ = {GetParam().pageSize, seed % 5 == 0};
        form_.freePages = seed % 4;
        form_.logPending = GetParam().log != Log::None;
        if (GetParam().store) {
            form_.foreign = false;
            if (worked_.empty()) Work();
            return {worked_, {}};
        }
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
    // The store's container.
    void Work() {
        {
            Store store(support::Wide(container_.Path()));
            EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
            Steps random(3, {});
            for (int i = 0; i < 150; ++i) Apply(random.Next(), &store);
            for (const char* name : {"k1", "k:2", "a name that is longer than its entry has room"})
                store.Set(store.Make("\\k0"), name, Bytes(30, 7));
        }
        worked_ = container_.Get();
    }
    // All that a store lists can be read. It is known by its version; without one it is a container
    // like any other.
    void ExpectReadable() {
        if (ReadContainer(container_.Get()).At(u"\\FBRVersion") == nullptr) return;
        Store store(support::Wide(container_.Path()));
        if (store.status == FSSTATUS_VERSION_MISMATCH) return;
        ASSERT_EQ(store.status, FSSTATUS_SUCCESS);
        ++opened_;
        Key all;
        EXPECT_EQ(support::ReadAll(store.handle, &all), FSSTATUS_SUCCESS);
    }

    MemoryContainer container_;
    Form form_;
    Bytes worked_;
    uint32_t opened_ = 0;
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
        EXPECT_EQ(check.Findings(), repair.Findings());
        ExpectReadable();
        container_.ExpectPromisesKept();
    }
    EXPECT_LT(lost, rounds / 4);
    EXPECT_LT(refused, rounds / 2);
    EXPECT_TRUE(!GetParam().store || opened_ > rounds / 3);
}

INSTANTIATE_TEST_SUITE_P(Shapes, DamageTest,
                         testing::Values(Shape{256, Log::None}, Shape{512, Log::None},
                                         Shape{4096, Log::None}, Shape{512, Log::None, true},
                                         Shape{512, Log::Beside}, Shape{256, Log::InFile},
                                         Shape{512, Log::Chained}));

}  // namespace
}  // namespace faults
