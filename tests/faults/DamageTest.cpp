// Random damage to containers of all shapes: whatever it was, a repair keeps its promise.
#include <gtest/gtest.h>

#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/faults/Registry.h"
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
        EXPECT_EQ(memory_.Get(path_), bytes);
        container::CheckOutcome repair = container::CheckContainer(path_, container::kRepair);
        if (repair.status == storage::kNotContainer) {
            ++lost;
            continue;
        }
        // A log that damage made nonsense of is not replayed, and nothing is done behind it until
        // it is given up.
        if (repair.status == storage::kCorrupt && GetParam().log != Log::None) {
            ++refused;
            EXPECT_FALSE(check.FoundNothing());
            EXPECT_EQ(memory_.Get(path_), bytes);
            repair =
                container::CheckContainer(path_, container::kRepair | storage::kCheckDiscardLog);
            if (repair.status == storage::kNotContainer) continue;
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

// What is listed in a store, and cannot be opened or read.
void ExpectReadable(Store* store, FBR_KEY key, const WString& path, int depth,
                    std::vector<std::string>* unreadable) {
    for (const WString& name : store->Values(key))
        if (!store->Get(key, name))
            unreadable->push_back("value " + platform::ToUtf8(path + WTEXT("\\\\") + name));
    for (const WString& name : store->Keys(key)) {
        const WString below = path + WTEXT("\\") + name;
        const FBR_KEY child = store->Open(name, key);
        if (child == 0) {
            unreadable->push_back("key " + platform::ToUtf8(below));
        } else if (depth < 50) {
            ExpectReadable(store, child, below, depth + 1, unreadable);
        }
        if (child != 0) FBR_CloseDirEx(child, store->handle);
    }
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
        for (const char16_t* name :
             {u"k1", u"k:2", u"a name that is longer than its entry has room"})
            store.Set(store.Make(WTEXT("\\k0")),
                      WString(name, name + std::char_traits<char16_t>::length(name)), Bytes(30, 7));
    }
    const Bytes sound = support::ReadBytes(path);
    support::MemoryFiles memory;
    const uint32_t rounds = container::Rounds(150);
    uint32_t opened = 0;
    for (uint32_t seed = 1; seed <= rounds && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Bytes bytes = sound;
        container::Damage damage(bytes, 512, false, seed);
        for (uint32_t i = 0; i <= seed % 9; ++i) damage.Strike();
        memory.Put(path, bytes);
        const container::CheckOutcome check =
            container::CheckContainer(path, container::kDeepCheck);
        EXPECT_EQ(memory.Get(path), bytes);
        const container::CheckOutcome repair = container::CheckContainer(path, container::kRepair);
        EXPECT_EQ(check.Findings(), repair.Findings());
        if (repair.status != storage::kOk) continue;
        // A store is known by its version; without one it is a container like any other.
        if (container::ReadContainer(memory.Get(path)).At(u"\\FBRVersion") == nullptr) continue;
        Store store(dir.File("s.fbr"));
        if (store.status == FSSTATUS_VERSION_MISMATCH) continue;
        ASSERT_EQ(store.status, FSSTATUS_SUCCESS);
        ++opened;
        std::vector<std::string> unreadable;
        ExpectReadable(&store, store.Root(), {}, 0, &unreadable);
        for (const std::string& what : unreadable) ADD_FAILURE() << what;
    }
    EXPECT_GT(opened, rounds / 3);
}

INSTANTIATE_TEST_SUITE_P(Shapes, DamageTest,
                         testing::Values(Shape{256, Log::None}, Shape{512, Log::None},
                                         Shape{4096, Log::None}, Shape{512, Log::Beside},
                                         Shape{256, Log::InFile}, Shape{512, Log::Chained}));

}  // namespace
}  // namespace faults
