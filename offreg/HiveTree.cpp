// SPDX-License-Identifier: MIT
#include "offreg/HiveTree.h"

#include <algorithm>
#include <utility>

namespace offreg {
namespace {

constexpr size_t kLongestUnindexedList = 16;
constexpr size_t kLongestRun = 512;

bool Precedes(const Key* key, WStringView name) {
    return CompareNames(key->name, name) < 0;
}

}  // namespace

void ValueList::BuildIndex() {
    for (const auto& value : items_) index_.emplace(value->name, value.get());
}

Value* ValueList::Find(WStringView name) {
    if (items_.size() > kLongestUnindexedList) {
        if (index_.empty()) BuildIndex();
        const auto found = index_.find(name);
        return found == index_.end() ? nullptr : found->second;
    }
    for (const auto& value : items_) {
        if (CompareNames(value->name, name) == 0) return value.get();
    }
    return nullptr;
}

Value* ValueList::Add(WString name) {
    items_.push_back(std::make_unique<Value>());
    Value* value = items_.back().get();
    value->name = std::move(name);
    if (index_.empty()) return value;
    try {
        index_.emplace(value->name, value);
    } catch (...) {
        items_.pop_back();
        throw;
    }
    return value;
}

void ValueList::Remove(const Value* value) noexcept {
    const auto found = std::find_if(items_.begin(), items_.end(),
                                    [value](const auto& item) { return item.get() == value; });
    if (found == items_.end()) return;
    index_.erase(value->name);
    items_.erase(found);
}

void ValueList::Clear() {
    index_.clear();
    items_.clear();
}

Key* SubkeyList::At(size_t index) const noexcept {
    for (const Run& run : runs_) {
        if (index < run.size()) return run[index];
        index -= run.size();
    }
    return nullptr;
}

Key* SubkeyList::Find(WStringView name) const noexcept {
    const auto run = std::partition_point(runs_.begin(), runs_.end(), [name](const Run& candidate) {
        return Precedes(candidate.back(), name);
    });
    if (run == runs_.end()) return nullptr;
    const auto found = std::partition_point(run->begin(), run->end(),
                                            [name](const Key* key) { return Precedes(key, name); });
    return CompareNames((*found)->name, name) == 0 ? *found : nullptr;
}

size_t SubkeyList::RunFor(WStringView name) const noexcept {
    const auto run = std::partition_point(runs_.begin(), runs_.end(), [name](const Run& candidate) {
        return CompareNames(candidate.back()->name, name) <= 0;
    });
    return std::min(static_cast<size_t>(run - runs_.begin()), runs_.size() - 1);
}

void SubkeyList::Split(size_t index, size_t keep) {
    runs_.reserve(runs_.size() + 1);
    Run& full = runs_[index];
    Run rest(full.begin() + static_cast<ptrdiff_t>(keep), full.end());
    full.resize(keep);
    runs_.insert(runs_.begin() + static_cast<ptrdiff_t>(index) + 1, std::move(rest));
}

// Whatever may fail for want of memory comes before the first change.
void SubkeyList::Insert(Key* key) {
    const WStringView name = key->name;
    if (runs_.empty() || (runs_.back().size() >= kLongestRun &&
                          CompareNames(runs_.back().back()->name, name) <= 0)) {
        runs_.push_back(Run{key});  // names that come sorted fill their runs
        ++count_;
        return;
    }
    if (runs_[RunFor(name)].size() >= kLongestRun) Split(RunFor(name), kLongestRun / 2);
    Run& run = runs_[RunFor(name)];
    run.insert(std::partition_point(
                   run.begin(), run.end(),
                   [name](const Key* other) { return CompareNames(other->name, name) <= 0; }),
               key);
    ++count_;
}

void SubkeyList::Remove(const Key* key) noexcept {
    const WStringView name = key->name;
    auto run = std::partition_point(runs_.begin(), runs_.end(), [name](const Run& candidate) {
        return Precedes(candidate.back(), name);
    });
    for (; run != runs_.end(); ++run) {
        const auto found = std::find(run->begin(), run->end(), key);
        if (found == run->end()) continue;
        run->erase(found);
        if (run->empty()) runs_.erase(run);
        --count_;
        return;
    }
}

Hive::Hive() {
    keys_.emplace_back();
    root_ = &keys_.back();
    root_->self = keys_.begin();
}

Key* Hive::AddKey(Key& parent, WString name) {
    keys_.emplace_back();
    Key& key = keys_.back();
    key.self = std::prev(keys_.end());
    key.parent = &parent;
    key.depth = parent.depth + 1;
    key.name = std::move(name);
    try {
        parent.subkeys.Insert(&key);
    } catch (...) {
        keys_.pop_back();
        throw;
    }
    ShareSecurity(key, parent.security);
    return &key;
}

void Hive::RemoveKey(Key& key) noexcept {
    key.parent->subkeys.Remove(&key);
    key.parent = nullptr;
    key.deleted = true;
    key.values.Clear();
    ShareSecurity(key, nullptr);
    Collect(key);
}

void Hive::Collect(Key& key) noexcept {
    if (key.deleted && key.handles == 0) keys_.erase(key.self);
}

void Hive::SetSecurity(Key& key, Bytes descriptor) {
    const auto [found, isNew] = securities_.try_emplace(std::move(descriptor));
    found->second.descriptor = &found->first;
    ShareSecurity(key, &found->second);
}

void Hive::ShareSecurity(Key& key, Security* security) noexcept {
    Security* old = key.security;
    if (security != nullptr) ++security->users;
    key.security = security;
    if (old != nullptr && --old->users == 0) securities_.erase(securities_.find(*old->descriptor));
}

}  // namespace offreg
