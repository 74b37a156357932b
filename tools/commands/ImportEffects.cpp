// SPDX-License-Identifier: MIT
#include "tools/commands/ImportEffects.h"

#include <algorithm>

#include "tools/commands/StoresOwn.h"
#include "tools/console/Interrupt.h"
#include "tools/store/TreeReader.h"

namespace fbr {

using platform::WString;
using platform::WStringView;

bool OldState::Has(const WString& path) {
    if (store_ == nullptr) return false;
    if (!asked_ || path != path_) {
        key_.reset();
        path_ = path;
        asked_ = true;
        if (store_->HasKey(path)) key_.emplace(store_->OpenKey(path));
    }
    return key_.has_value();
}

std::optional<Value> OldState::Get(const WString& name) const {
    try {
        return key_->Get(name);
    } catch (const StoreError& error) {
        if (error.Status() != FSSTATUS_NOT_FOUND) throw;
        return std::nullopt;
    }
}

void UndoWriter::Take(const WString& path, const Record& record) {
    if (record.kind == Record::Kind::kDeleteKey) return Restore(path);
    if (!old_.Has(path)) return TakeBack(path);
    if (record.kind == Record::Kind::kKey) return;
    if (IsStoresOwn({old_.TheStore(), {}}, path, record.name)) return;
    const auto value = old_.Get(record.name);
    const bool stays = record.kind == Record::Kind::kDeleteValue
                           ? !value
                           : value == Value{record.type, record.data};
    if (stays) return;
    if (current_ != path) writer_.Key(path);
    current_ = path;
    value ? writer_.Value(record.name, value->type, value->data) : writer_.DeleteValue(record.name);
}

// The uppermost key on the way that is not there: it goes with all below it.
void UndoWriter::TakeBack(const WString& path) {
    if (!taken_.empty() && IsAtOrBelow(path, taken_)) return;
    size_t end = std::min(path.find('\\'), path.size());
    while (end < path.size() && old_.Has(path.substr(0, end)))
        end = std::min(path.find('\\', end + 1), path.size());
    taken_ = path.substr(0, end);
    writer_.DeleteKey(taken_);
    current_.reset();
}

// The key goes first, with what the import may have put in its place.
void UndoWriter::Restore(const WString& path) {
    if (!old_.Has(path)) return;
    if (!path.empty()) writer_.DeleteKey(path);
    WithoutStoresOwn content({old_.TheStore(), {}}, writer_);
    ReadTree(old_.TheStore(), path, content, &StopIfInterrupted, {});
    current_.reset();
}

void DryRun::GoTo(WStringView path) {
    spelling_.GoTo(path, [this](const WString& made) {
        lines_.KeyOnlyThere(made);
        changes_ = true;
    });
}

void DryRun::TellValue(const WString& path, WStringView name, const Value* here,
                       const Value* there) {
    const auto first = firsts_.find(words_.Hash().Value(path, name));
    if (first != firsts_.end()) name = first->second;
    GoTo(path);
    lines_.ValueDiffers(spelling_.Path(), spelling_.OfValue(words_.Hash().Name(name)), here, there);
    changes_ = true;
}

void DryRun::RememberFirst(const WString& path, const Record& record) {
    const uint64_t hash = words_.Hash().Value(path, record.name);
    if (record.kind == Record::Kind::kValue) firsts_.try_emplace(hash, record.name);
    if (record.kind == Record::Kind::kDeleteValue) firsts_.erase(hash);
}

// The values of an old key that is removed and made again, but for those that are set later.
void DryRun::TellValues(const Key& key) {
    for (const WString& name : ReachableValues(key, {})) {
        if (words_.OfValue(key.Path(), name) > number_) continue;
        if (IsStoresOwn({*store_, {}}, key.Path(), name)) continue;
        const auto value = TryGet(key, name, {});
        if (value) TellValue(key.Path(), name, &*value, nullptr);
        changes_ = true;
    }
}

void DryRun::TellGone(const WString& path) {
    GoTo(path);
    lines_.KeyOnlyHere(spelling_.Path());
    changes_ = true;
}

// What is made again stays, so far as it is. What is removed once more is told there.
void DryRun::TellRemoved(const WString& path) {
    if (words_.IsGone(path)) return TellGone(path);
    std::vector<WString> keys = {path};
    while (!keys.empty()) {
        StopIfInterrupted();
        const WString at = std::move(keys.back());
        keys.pop_back();
        if (words_.Removal(at) != number_) continue;
        if (words_.IsGone(at)) {
            TellGone(at);
            continue;
        }
        const Key key = store_->OpenKey(at);
        TellValues(key);
        for (const WString& name : ReachableSubkeys(key, {})) keys.push_back(JoinKeys(at, name));
    }
}

// A key that is removed later leaves those above it that are not, spelled as it has them.
void DryRun::TellWay(WStringView path) {
    while (!path.empty() && words_.Removal(path) > number_) path = PathAbove(path);
    if (!old_.Has(WString(path))) GoTo(path);
}

void DryRun::Take(const WString& path, const Record& record) {
    ++number_;
    const bool removes = record.kind == Record::Kind::kDeleteKey;
    const uint64_t removal = words_.Removal(path);
    if (removal > number_ && !removes) return TellWay(PathAbove(path));
    if (removal > number_ || (removes && words_.IsGone(PathAbove(path)))) return;
    const bool there = old_.Has(path);
    if (removes) {
        if (there) TellRemoved(path);
        return;
    }
    if (!there) GoTo(path);
    if (record.kind == Record::Kind::kKey) return;
    if (!words_.IsLast(path, record, number_)) return RememberFirst(path, record);
    const auto old = there ? old_.Get(record.name) : std::nullopt;
    std::optional<Value> value;
    if (record.kind == Record::Kind::kValue) value = Value{record.type, record.data};
    if (old != value)
        TellValue(path, record.name, old ? &*old : nullptr, value ? &*value : nullptr);
}

}  // namespace fbr
