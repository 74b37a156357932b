// SPDX-License-Identifier: MIT
#include "tools/store/TreeCopy.h"

#include <fmt/format.h>

#include <utility>

#include "tools/console/Interrupt.h"
#include "tools/store/TreeReader.h"
#include "tools/store/TreeWriter.h"

namespace fbr {
namespace {

using platform::WString;
using platform::WStringView;

class Copier : public RecordSink {
  public:
    Copier(const Place& from, const Place& to, const OnLoss& onLoss)
        : from_(from), to_(to), onLoss_(onLoss), writer_(to.store) {}

    void Key(WStringView path) override {
        relative_ = PathBelow(path, from_.key);
        unnamed_ = Unnamed::kNone;
        writer_.Key(JoinKeys(to_.key, relative_));
    }

    void Value(WStringView name, uint32_t type, const Bytes& data) override {
        if (IsStoresOwn(from_, relative_, name) || IsStoresOwn(to_, relative_, name)) return;
        if (HasPlace(name)) writer_.Value(name, type, data);
    }

    void Finish() { writer_.Finish(); }
    std::string Done() const { return writer_.Done(); }

  private:
    enum class Unnamed { kNone, kReal, kCalledDefault };

    // Where the unnamed value and "(Default)" are one, the unnamed one has it.
    bool HasPlace(WStringView name) {
        if (to_.store.KeepsUnnamedApart()) return true;
        const bool calledDefault = platform::CompareFolded(name, WTEXT("(Default)")) == 0;
        if (!name.empty() && !calledDefault) return true;
        const Unnamed kind = calledDefault ? Unnamed::kCalledDefault : Unnamed::kReal;
        if (std::exchange(unnamed_, kind) == Unnamed::kNone) return true;
        onLoss_(fmt::format(
            "value \"(Default)\" of key {} in {} is left out: {} keeps the unnamed "
            "value by that name",
            ShowKey(JoinKeys(from_.key, relative_)), from_.store.Name(), to_.store.Name()));
        return !calledDefault;
    }

    const Place &from_, &to_;
    const OnLoss& onLoss_;
    TreeWriter writer_;
    WString relative_;  // of the key given last
    Unnamed unnamed_ = Unnamed::kNone;
};

}  // namespace

void CopyTree(const Place& from, const Place& to, const std::function<void()>& onKey,
              const OnLoss& onLoss) {
    Copier copier(from, to, onLoss);
    const auto told = [&copier](const std::string& what) {
        return fmt::format("{}; {}; the rest was not copied", what, copier.Done());
    };
    try {
        ReadTree(from.store, from.key, copier, onKey, onLoss);
        copier.Finish();
    } catch (const StoreError& error) {
        throw StoreError(told(error.what()), error.Status());
    } catch (const Interrupted&) {
        throw Interrupted(told("stopped"));
    }
}

}  // namespace fbr
