// The same random work on a store and on a plain tree in memory: they must stay equal, also when
// there are volatile keys beside, and when the store is compacted, checked and opened again.
// ZRFS_LONG_TESTS=n does n times as much.
#include <cstdlib>

#include "tests/contract/RandomWork.h"

namespace contract {
namespace {

constexpr int kSteps = 400;
constexpr int kReopenEvery = 150;

class Model : public StoreTest {
  protected:
    // One at a time of what leaves the rest as it is.
    void StepBeside(OpenStore& store, int step) {
        uint32_t word = 0;
        if (step % 3 == 0) {
            const WString name = Name("volatile" + std::to_string(step % 4));
            const FBR_STATUS made = store.Make(WTEXT("\\") + name, 0, FSCREATEOPTIONS_VOLATILE);
            const FBR_STATUS expected = GetParam().differences.volatileCreate;
            const bool isNew = expected != FSSTATUS_SUCCESS || volatile_.insert(name).second;
            EXPECT_EQ(made, isNew ? expected : FSSTATUS_ALREADY_EXISTS);
        } else if (step % 3 == 1) {
            FBR_Compact(store.Get(), &word);  // some kinds have nothing to compact
        } else {
            EXPECT_EQ(FBR_IsCorrupted(store.Get(), &word), FSSTATUS_SUCCESS);
            EXPECT_EQ(word, 0u);
        }
    }
    void ExpectEqual(OpenStore& store, const RandomWork& work) {
        Tree expected = work.Expected();
        for (const WString& name : volatile_) expected.keys[name];
        EXPECT_EQ(store.Content(), expected);
    }
    void Reopen(std::unique_ptr<OpenStore>* store, Place& place) {
        store->reset();
        if (GetParam().differences.volatileEndsWithStore) volatile_.clear();
        if (place.Method() == FS_VR_METHOD_TARN) {
            EXPECT_EQ(FBR_CheckFileEx(place.Path().c_str(), nullptr), FSSTATUS_SUCCESS);
        }
        *store = std::make_unique<OpenStore>(place);
    }

    std::set<WString> volatile_;
};

INSTANTIATE_TEST_SUITE_P(Stores, Model, testing::ValuesIn(AllBackends()),
                         [](const auto& param) { return param.param.name; });

TEST_P(Model, RandomWorkLeavesStoreAndModelEqual) {
    const uint32_t seed = static_cast<uint32_t>(testing::UnitTest::GetInstance()->random_seed());
    SCOPED_TRACE("repeat with --gtest_random_seed=" + std::to_string(seed));
    RandomWork work(seed, WString(), GetParam().differences);
    const char* times = std::getenv("ZRFS_LONG_TESTS");
    const int steps = kSteps * (times == nullptr ? 1 : std::atoi(times));
    const auto place = GetParam().makePlace();
    auto store = std::make_unique<OpenStore>(*place);
    for (int step = 1; step <= steps && !HasFailure(); ++step) {
        work.Step(store.get());
        if (step % 20 == 0) StepBeside(*store, step / 20);
        if (step % kReopenEvery == 0) {
            ExpectEqual(*store, work);
            Reopen(&store, *place);
            ExpectEqual(*store, work);
        }
    }
    ExpectEqual(*store, work);
    store.reset();
}

}  // namespace
}  // namespace contract
