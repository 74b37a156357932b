#include "tools/store/TreeReader.h"

namespace fbr {
namespace {

struct Level {
    Key key;
    std::vector<platform::WString> subkeys;
    size_t next = 0;
};

}  // namespace

void ReadTree(const Store& store, platform::WStringView root, RecordSink& sink,
              const std::function<void()>& onKey) {
    std::vector<Level> levels;
    const auto enter = [&](Key key) {
        sink.Key(key.Path());
        for (const platform::WString& name : key.ValueNames()) {
            const Value value = key.Get(name);
            sink.Value(name, value.type, value.data);
        }
        if (onKey) onKey();
        auto subkeys = key.SubkeyNames();
        levels.push_back({std::move(key), std::move(subkeys)});
    };

    enter(store.OpenKey(root));
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next == level.subkeys.size())
            levels.pop_back();
        else
            enter(level.key.OpenSubkey(level.subkeys[level.next++]));
    }
}

}  // namespace fbr
