// SPDX-License-Identifier: MIT
#include "tools/store/TreeCompare.h"

#include <algorithm>

namespace fbr {
namespace {

using platform::CompareFolded;
using platform::WString;
using platform::WStringView;
using Names = std::vector<WString>;

Names Sorted(Names names) {
    std::sort(names.begin(), names.end(),
              [](const WString& a, const WString& b) { return CompareFolded(a, b) < 0; });
    return names;
}

// Two sorted lists as one: each step gives the name that comes next, on the sides that have it.
class Merge {
  public:
    Merge(Names here, Names there)
        : here_(Sorted(std::move(here))), there_(Sorted(std::move(there))) {}

    // False when both lists are at their ends. Null for a side that does not have the name.
    bool Next(const WString*& here, const WString*& there) {
        here = nextHere_ < here_.size() ? &here_[nextHere_] : nullptr;
        there = nextThere_ < there_.size() ? &there_[nextThere_] : nullptr;
        if (here != nullptr && there != nullptr) {
            const int order = CompareFolded(*here, *there);
            if (order < 0) there = nullptr;
            if (order > 0) here = nullptr;
        }
        if (here != nullptr) ++nextHere_;
        if (there != nullptr) ++nextThere_;
        return here != nullptr || there != nullptr;
    }

  private:
    Names here_, there_;
    size_t nextHere_ = 0, nextThere_ = 0;
};

// A key that both sides have.
struct Level {
    Key here, there;
    WString path;
    Merge subkeys;
};

class Comparison {
  public:
    Comparison(const Place& here, const Place& there, DifferenceSink& sink,
               const std::function<void()>& onKey, const OnLoss& onLoss)
        : here_(here), there_(there), sink_(sink), onKey_(onKey), onLoss_(onLoss) {}

    void Run() {
        Enter(here_.store.OpenKey(here_.key), there_.store.OpenKey(there_.key), {});
        while (!levels_.empty()) {
            Level& level = levels_.back();
            const WString *here = nullptr, *there = nullptr;
            if (!level.subkeys.Next(here, there))
                levels_.pop_back();
            else if (there == nullptr)
                sink_.KeyOnlyHere(JoinKeys(level.path, *here));
            else if (here == nullptr)
                sink_.KeyOnlyThere(JoinKeys(level.path, *there));
            else
                EnterBoth(level, *here, *there);
        }
    }

  private:
    void EnterBoth(const Level& level, const WString& hereName, const WString& thereName) {
        auto here = TryOpen(level.here, hereName, onLoss_);
        auto there = TryOpen(level.there, thereName, onLoss_);
        if (here && there)
            Enter(std::move(*here), std::move(*there), JoinKeys(level.path, hereName));
    }

    void Enter(Key here, Key there, WString path) {
        sink_.KeyInBoth(path, here, there);
        CompareValues(here, there, path);
        if (onKey_) onKey_();
        Merge subkeys(ReachableSubkeys(here, onLoss_), ReachableSubkeys(there, onLoss_));
        levels_.push_back({std::move(here), std::move(there), std::move(path), std::move(subkeys)});
    }

    void CompareValues(const Key& hereKey, const Key& thereKey, const WString& path) {
        Merge names(ReachableValues(hereKey, onLoss_), ReachableValues(thereKey, onLoss_));
        const WString *here = nullptr, *there = nullptr;
        while (names.Next(here, there)) {
            const WString& name = here != nullptr ? *here : *there;
            if (IsStoresOwn(here_, path, name) || IsStoresOwn(there_, path, name)) continue;
            std::optional<Value> hereValue, thereValue;
            if (here != nullptr && !(hereValue = TryGet(hereKey, *here, onLoss_))) continue;
            if (there != nullptr && !(thereValue = TryGet(thereKey, *there, onLoss_))) continue;
            if (hereValue == thereValue)
                sink_.ValueIsSame(name, *hereValue);
            else
                sink_.ValueDiffers(path, name, hereValue ? &*hereValue : nullptr,
                                   thereValue ? &*thereValue : nullptr);
        }
    }

    const Place &here_, &there_;
    DifferenceSink& sink_;
    const std::function<void()>& onKey_;
    const OnLoss& onLoss_;
    std::vector<Level> levels_;
};

}  // namespace

void CompareTrees(const Place& here, const Place& there, DifferenceSink& sink,
                  const std::function<void()>& onKey, const OnLoss& onLoss) {
    Comparison(here, there, sink, onKey, onLoss).Run();
}

}  // namespace fbr
