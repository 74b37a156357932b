#include "tools/store/TreeReader.h"

namespace fbr {
namespace {

struct Level {
    Key key;
    std::vector<platform::WString> subkeys;
    size_t next = 0;
};

// Depth first, however deep: `onKey` is told of each key before those below it.
template <typename OnKey>
void Walk(const Store& store, platform::WStringView root, const OnLoss& onLoss, OnKey onKey) {
    std::vector<Level> levels;
    const auto enter = [&](Key key) {
        onKey(key);
        auto subkeys = ReachableSubkeys(key, onLoss);
        levels.push_back({std::move(key), std::move(subkeys)});
    };

    enter(store.OpenKey(root));
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next == level.subkeys.size())
            levels.pop_back();
        else if (auto key = TryOpen(level.key, level.subkeys[level.next++], onLoss))
            enter(std::move(*key));
    }
}

}  // namespace

void ReadTree(const Store& store, platform::WStringView root, RecordSink& sink,
              const std::function<void()>& onKey, const OnLoss& onLoss) {
    Walk(store, root, onLoss, [&](const Key& key) {
        sink.Key(key.Path());
        for (const platform::WString& name : ReachableValues(key, onLoss)) {
            if (const auto value = TryGet(key, name, onLoss))
                sink.Value(name, value->type, value->data);
        }
        if (onKey) onKey();
    });
}

uint64_t CountKeys(const Store& store, platform::WStringView root) {
    uint64_t keys = 0;
    Walk(store, root, {}, [&keys](const Key&) { ++keys; });
    return keys;
}

}  // namespace fbr
