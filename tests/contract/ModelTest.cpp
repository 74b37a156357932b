// The same random work on a store and on a plain tree in memory: they must stay equal.
#include <random>

#include "tests/contract/OpenStore.h"

namespace contract {
namespace {

constexpr int kSteps = 400;
constexpr int kReopenEvery = 150;

class Model : public StoreTest {
  protected:
    uint32_t Roll(uint32_t below) { return static_cast<uint32_t>(random_() % below); }

    // A short path of few names, so that keys meet.
    std::vector<WString> RandomPath() {
        std::vector<WString> path;
        for (uint32_t depth = 1 + Roll(3); depth > 0; --depth) {
            path.push_back(Name("k" + std::to_string(Roll(3))));
        }
        return path;
    }
    static WString Joined(const std::vector<WString>& path) {
        WString text;
        for (const WString& part : path) text += WTEXT("\\") + part;
        return text;
    }
    // The key of a path in the tree, null when it is not there.
    Tree* Find(const std::vector<WString>& path) {
        Tree* at = &tree_;
        for (const WString& part : path) {
            const auto next = at->keys.find(part);
            if (next == at->keys.end()) return nullptr;
            at = &next->second;
        }
        return at;
    }

    void SetValue(OpenStore& store, const std::vector<WString>& path) {
        const WString name = Name("v" + std::to_string(Roll(4)));
        const Value value{Roll(12), Bytes(Roll(4) == 0 ? Roll(3000) : Roll(40), Roll(1000))};
        ASSERT_EQ(store.Set(store.Create(Joined(path)), name, value.bytes, value.type),
                  FSSTATUS_SUCCESS);
        Tree* at = &tree_;
        for (const WString& part : path) at = &at->keys[part];
        at->values[name] = value;
    }
    void DeleteValue(OpenStore& store, const std::vector<WString>& path) {
        Tree* key = Find(path);
        const WString name = Name("v" + std::to_string(Roll(4)));
        if (key == nullptr) return;
        EXPECT_EQ(FBR_DeleteValue(store.Open(Joined(path)), name.c_str(), store.Get()),
                  key->values.erase(name) != 0 ? FSSTATUS_SUCCESS : FSSTATUS_NOT_FOUND);
    }
    void DeleteTree(OpenStore& store, std::vector<WString> path) {
        const FBR_STATUS status = FBR_DeleteDirNamedEx(Joined(path).c_str(), store.Get());
        const WString last = path.back();
        path.pop_back();
        Tree* parent = Find(path);
        if (parent == nullptr) {
            EXPECT_EQ(status, GetParam().differences.deleteBelowMissing);
        } else {
            EXPECT_EQ(status,
                      parent->keys.erase(last) != 0 ? FSSTATUS_SUCCESS : FSSTATUS_NOT_FOUND);
        }
    }
    void Rename(OpenStore& store, std::vector<WString> path) {
        if (Find(path) == nullptr) return;
        const WString newName = Name("k" + std::to_string(Roll(4)));
        if (newName == path.back()) return;
        const OpenKey key = store.Open(Joined(path));
        const WString last = path.back();
        path.pop_back();
        auto& siblings = Find(path)->keys;
        const bool taken = siblings.count(newName) != 0;
        // The names that sort up to the new one end with the old one: the key stays in its place.
        const bool inPlace =
            last < newName && siblings.upper_bound(last) == siblings.lower_bound(newName);
        if (inPlace && GetParam().differences.renameInPlaceDuplicates) return;
        FBR_STATUS status = FBR_RenameDirEx(key, newName.c_str(), store.Get());
        if (GetParam().differences.renameTripsOverDeleted && status == FSSTATUS_NOT_FOUND) {
            status = FSSTATUS_SUCCESS;
        }
        EXPECT_EQ(status, taken ? FSSTATUS_ALREADY_EXISTS : FSSTATUS_SUCCESS);
        if (taken) return;
        auto node = siblings.extract(last);
        node.key() = newName;
        siblings.insert(std::move(node));
    }
    void Step(OpenStore& store) {
        const std::vector<WString> path = RandomPath();
        const uint32_t what = Roll(10);
        if (what < 6) {
            SetValue(store, path);
        } else if (what < 8) {
            DeleteValue(store, path);
        } else if (what == 8) {
            DeleteTree(store, path);
        } else {
            Rename(store, path);
        }
    }

    std::mt19937 random_;
    Tree tree_;
};

INSTANTIATE_TEST_SUITE_P(Stores, Model, testing::ValuesIn(AllBackends()),
                         [](const auto& param) { return param.param.name; });

TEST_P(Model, RandomWorkLeavesStoreAndModelEqual) {
    const uint32_t seed = static_cast<uint32_t>(testing::UnitTest::GetInstance()->random_seed());
    SCOPED_TRACE("repeat with --gtest_random_seed=" + std::to_string(seed));
    random_.seed(seed);
    const auto place = GetParam().makePlace();
    auto store = std::make_unique<OpenStore>(*place);
    for (int step = 1; step <= kSteps && !HasFailure(); ++step) {
        Step(*store);
        if (step % kReopenEvery == 0) {
            ASSERT_EQ(store->Content(), tree_);
            store.reset();
            store = std::make_unique<OpenStore>(*place);
            ASSERT_EQ(store->Content(), tree_);
        }
    }
    EXPECT_EQ(store->Content(), tree_);
    store.reset();
}

}  // namespace
}  // namespace contract
