// Random damage to containers of all shapes: whatever it was, a repair keeps its promise.
#include <gtest/gtest.h>

#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/support/Damage.h"
#include "tests/support/MemoryFiles.h"

namespace faults {
namespace {

namespace container = support::container;
using container::Builder;
using support::Bytes;

enum class Log { None, Beside, InFile, Chained };
struct Shape {
    uint32_t pageSize;
    Log log;
};

class DamageTest : public testing::TestWithParam<Shape> {
  protected:
    // A container of one seed, and the log beside it if it has one.
    Bytes Make(uint32_t seed) {
        form_ = {};
        form_.pageSize = GetParam().pageSize;
        form_.foreign = seed % 5 == 0;
        form_.freePages = seed % 4;
        form_.logPending = GetParam().log != Log::None;
        Builder builder(form_, container::RichTree(form_.pageSize));
        const uint32_t header = builder.At(u"\\small").headerPage;
        const std::vector<Bytes> log =
            container::SequentialLog(form_, {7}, {{32, header, 7, builder.PageBytes(header), {}}});
        memory_.Remove(log_);
        if (GetParam().log == Log::Beside) memory_.Put(log_, container::Joined(log));
        if (GetParam().log == Log::InFile) builder.AddInFileLog(log, 10);
        if (GetParam().log == Log::Chained) {
            const uint32_t page = builder.AddPage(container::DataPage);
            builder.AddChainedLog({page}, 1);
        }
        return builder.Finish();
    }

    support::TempDir dir_;
    const std::filesystem::path path_ = dir_ / "c.dat", log_ = dir_ / "c.log";
    support::MemoryFiles memory_;
    container::Form form_;
};

TEST_P(DamageTest, IsMendedOnceAndForAll) {
    const uint32_t rounds = container::Rounds(100);
    uint32_t lost = 0, refused = 0;
    for (uint32_t seed = 1; seed <= rounds && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Bytes bytes = Make(seed);
        container::Damage damage(bytes, form_.pageSize, form_.foreign, seed);
        for (uint32_t i = 0; i <= seed % 7; ++i) damage.Strike();
        memory_.Put(path_, bytes);
        const container::CheckOutcome check =
            container::CheckContainer(path_, container::kDeepCheck);
        const container::CheckOutcome repair = container::CheckContainer(path_, container::kRepair);
        if (repair.status == storage::kNotContainer) {
            ++lost;
            continue;
        }
        // A log that damage made nonsense of is not replayed, and nothing is done behind it.
        if (repair.status == storage::kCorrupt && GetParam().log != Log::None) {
            ++refused;
            continue;
        }
        ASSERT_EQ(repair.status, storage::kOk);
        EXPECT_EQ(check.status, storage::kOk);
        for (const std::string& broken :
             container::BrokenPromises(path_, [&] { return memory_.Get(path_); }))
            ADD_FAILURE() << broken;
    }
    EXPECT_LT(lost, rounds / 4);
    EXPECT_LT(refused, rounds / 2);
}

INSTANTIATE_TEST_SUITE_P(Shapes, DamageTest,
                         testing::Values(Shape{256, Log::None}, Shape{512, Log::None},
                                         Shape{4096, Log::None}, Shape{512, Log::Beside},
                                         Shape{256, Log::InFile}, Shape{512, Log::Chained}));

}  // namespace
}  // namespace faults
