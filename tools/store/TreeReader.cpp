// SPDX-License-Identifier: MIT
#include "tools/store/TreeReader.h"

#include <algorithm>

#include "tools/console/Interrupt.h"

namespace fbr {
namespace {

struct OpenLevel {
    Key key;
    std::vector<platform::WString> subkeys;
    size_t next = 0;
};

}  // namespace

void SortNames(std::vector<platform::WString>& names) {
    std::sort(names.begin(), names.end(), [](const auto& a, const auto& b) {
        const int order = platform::CompareFolded(a, b);
        return order != 0 ? order < 0 : a < b;
    });
}

void WalkKeys(const Store& store, platform::WStringView root, const OnLoss& onLoss,
              const std::function<void(const Key&)>& onKey, Order order) {
    std::vector<OpenLevel> levels;
    const auto enter = [&](Key key) {
        StopIfInterrupted();
        onKey(key);
        auto subkeys = ReachableSubkeys(key, onLoss);
        if (order == Order::kByName) SortNames(subkeys);
        levels.push_back({std::move(key), std::move(subkeys)});
    };

    enter(store.OpenKey(root));
    while (!levels.empty()) {
        OpenLevel& level = levels.back();
        if (level.next == level.subkeys.size())
            levels.pop_back();
        else if (auto key = TryOpen(level.key, level.subkeys[level.next++], onLoss))
            enter(std::move(*key));
    }
}

void ReadValues(const Key& key, RecordSink& sink, const OnLoss& onLoss, Order order) {
    auto names = ReachableValues(key, onLoss);
    if (order == Order::kByName) SortNames(names);
    for (const platform::WString& name : names)
        if (const auto value = TryGet(key, name, onLoss))
            sink.Value(name, value->type, value->data);
}

void ReadTree(const Store& store, platform::WStringView root, RecordSink& sink,
              const std::function<void()>& onKey, const OnLoss& onLoss, Order order) {
    const auto give = [&](const Key& key) {
        sink.Key(key.Path());
        ReadValues(key, sink, onLoss, order);
        if (onKey) onKey();
    };
    WalkKeys(store, root, onLoss, give, order);
}

uint64_t CountKeys(const Store& store, platform::WStringView root) {
    uint64_t keys = 0;
    WalkKeys(store, root, {}, [&keys](const Key&) { ++keys; });
    return keys;
}

}  // namespace fbr
