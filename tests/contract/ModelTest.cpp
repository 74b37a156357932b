// The same random work on a store and on a plain tree in memory: they must stay equal.
#include "tests/contract/RandomWork.h"

namespace contract {
namespace {

constexpr int kSteps = 400;
constexpr int kReopenEvery = 150;

class Model : public StoreTest {};

INSTANTIATE_TEST_SUITE_P(Stores, Model, testing::ValuesIn(AllBackends()),
                         [](const auto& param) { return param.param.name; });

TEST_P(Model, RandomWorkLeavesStoreAndModelEqual) {
    const uint32_t seed = static_cast<uint32_t>(testing::UnitTest::GetInstance()->random_seed());
    SCOPED_TRACE("repeat with --gtest_random_seed=" + std::to_string(seed));
    RandomWork work(seed, WString(), GetParam().differences);
    const auto place = GetParam().makePlace();
    auto store = std::make_unique<OpenStore>(*place);
    for (int step = 1; step <= kSteps && !HasFailure(); ++step) {
        work.Step(store.get());
        if (step % kReopenEvery == 0) {
            ASSERT_EQ(store->Content(), work.Expected());
            store.reset();
            store = std::make_unique<OpenStore>(*place);
            ASSERT_EQ(store->Content(), work.Expected());
        }
    }
    EXPECT_EQ(store->Content(), work.Expected());
    store.reset();
}

}  // namespace
}  // namespace contract
