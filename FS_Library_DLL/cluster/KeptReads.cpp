// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/KeptReads.h"

namespace cluster {

void KeptReads::Keep(const std::string& parent, const std::string& folded, Child child) {
    keyBytes_ += 500;
    places_[child.id] = {parent, folded};
    children_[parent].found[folded] = std::move(child);
}

void KeptReads::Keep(const std::string& id, const std::string& folded, ValueRecord value) {
    if (value.data.size() > kMostDataBytes) value.data.clear();
    valueBytes_ += value.data.size() + 200;
    values_[id].found[folded] = std::move(value);
}

void KeptReads::DropTree(const std::string& id) {
    for (std::vector<std::string> gone = {id}; !gone.empty();) {
        const std::string one = std::move(gone.back());
        gone.pop_back();
        for (const auto& [folded, child] : children_[one].found) gone.push_back(child.id);
        children_.erase(one);
        values_.erase(one);
        places_.erase(one);
        told_.erase(one);
    }
}

std::string KeptReads::PlaceOf(const std::string& id) const {
    const auto found = told_.find(id);
    return found == told_.end() ? "" : found->second;
}

void KeptReads::Trim() {
    if (keyBytes_ > kMostKeyBytes) return Clear();
    if (valueBytes_ <= kMostValueBytes) return;
    values_.clear();
    valueBytes_ = 0;
}

bool KeptReads::HasAll(const std::string& id) const {
    const auto children = children_.find(id);
    const auto values = values_.find(id);
    return children != children_.end() && children->second.isAll && values != values_.end() &&
           values->second.isAll;
}

const platform::UtcTime* KeptReads::FindTime(const std::string& id) const {
    const auto found = times_.find(id);
    return found == times_.end() ? nullptr : &found->second;
}

// This key, or those below it, which are no deeper than what was read.
void KeptReads::AddUnread(const std::string& id, size_t most, int* looks,
                          std::vector<std::string>* next) const {
    if (next->size() >= most || ++*looks > kMostLookedAt) return;
    if (!HasAll(id)) return next->push_back(id);
    for (const auto& [folded, child] : children_.find(id)->second.found)
        AddUnread(child.id, most, looks, next);
}

std::vector<std::string> KeptReads::ReadNext(const std::string& id, size_t most) const {
    std::vector<std::string> next;
    int looks = 0;
    for (auto place = places_.find(id); place != places_.end() && next.size() < most;
         place = places_.find(place->second.first)) {
        const auto& siblings = children_.find(place->second.first);
        if (siblings == children_.end() || ++looks > kMostLookedAt) break;
        auto at = siblings->second.found.find(place->second.second);
        if (at == siblings->second.found.end()) break;
        if (at != siblings->second.found.begin() && !HasAll(std::prev(at)->second.id)) break;
        while (++at != siblings->second.found.end() && next.size() < most)
            AddUnread(at->second.id, most, &looks, &next);
    }
    return next;
}

}  // namespace cluster
