// SPDX-License-Identifier: MIT
#include "tools/commands/Spelling.h"

#include "tools/console/Interrupt.h"
#include "tools/store/Place.h"
#include "tools/store/Reach.h"

namespace fbr {

using platform::WString;
using platform::WStringView;

Spelling::Spelling(const Store* store, const PlaceHash& hash) : store_(store), hash_(hash) {
    levels_.push_back({{}, store != nullptr, {}, {}});
}

void Spelling::GoTo(WStringView path, const OnNew& onNew) {
    while (!IsAtOrBelow(path, Path())) levels_.pop_back();
    while (Path().size() < path.size()) {
        const size_t begin = Path().empty() ? 0 : Path().size() + 1;
        const size_t end = std::min(path.find('\\', begin), path.size());
        GoDown(path.substr(0, end), path.substr(begin, end - begin), onNew);
    }
}

void Spelling::GoDown(WStringView path, WStringView name, const OnNew& onNew) {
    Level& above = levels_.back();
    WString spelled(name);
    bool there = above.there;
    if (there) {
        if (!above.subkeys) {
            StopIfInterrupted();
            const auto names = ReachableSubkeys(store_->OpenKey(above.path), {});
            above.subkeys.emplace(names.begin(), names.end());
        }
        const auto found = above.subkeys->find(name);
        if (found != above.subkeys->end())
            spelled = *found;
        else
            there = store_->HasKey(path);  // which may take other letters for one, too
    }
    const auto [made, isNew] =
        there ? std::pair(made_.end(), false) : made_.try_emplace(hash_.Key(path), spelled);
    if (!there) spelled = made->second;
    levels_.push_back({JoinKeys(above.path, spelled), there, {}, {}});
    if (isNew) onNew(Path());
}

WString Spelling::OfValue(WStringView name) {
    Level& key = levels_.back();
    if (key.there && !key.values) {
        const auto names = ReachableValues(store_->OpenKey(key.path), {});
        key.values.emplace(names.begin(), names.end());
    }
    const auto found = key.values ? key.values->find(name) : Names::iterator();
    return WString(key.values && found != key.values->end() ? WStringView(*found) : name);
}

}  // namespace fbr
