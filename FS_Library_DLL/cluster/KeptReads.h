// SPDX-License-Identifier: MIT
// What was read under the store's lock and is still so: nobody else changes the store meanwhile.
#pragma once

#include <map>
#include <unordered_map>

#include "FS_Library_DLL/cluster/ClusterRecords.h"

namespace cluster {

struct Child {
    std::string id;
    WString name;  // as it was made
    int64_t lease = 0;
};

// A part of the store. Of each key, what is kept of its children or values may be all or some.
class KeptReads {
  public:
    template <class Item>
    struct Names {
        std::map<std::string, Item> found;  // by the folded name
        bool isAll = false;
    };

    Names<Child>& Children(const std::string& id) { return children_[id]; }
    Names<ValueRecord>& Values(const std::string& id) { return values_[id]; }
    bool HasAll(const std::string& id) { return children_[id].isAll && values_[id].isAll; }
    void Keep(const std::string& parent, const std::string& folded, Child child);
    // Of a value that is set or read. Long data are not kept.
    void Keep(const std::string& id, const std::string& folded, ValueRecord value);
    // A key that is gone, with what is known to be below it.
    void DropTree(const std::string& id);
    // The next keys beside this one, if the one before it was read: who goes through a store asks
    // for them next. They were not read yet.
    std::vector<std::string> ReadNext(const std::string& id, size_t most);
    void Clear() { *this = {}; }
    // What was added; and, between two operations, whether it is too much.
    void Count(size_t bytes) { bytes_ += bytes; }
    void Trim() {
        if (bytes_ > kMostBytes) Clear();
    }

  private:
    static constexpr size_t kMostBytes = 32u << 20;

    static constexpr size_t kMostDataBytes = 64 * 1024;

    std::unordered_map<std::string, Names<Child>> children_;
    std::unordered_map<std::string, std::pair<std::string, std::string>> places_;  // of children
    std::unordered_map<std::string, Names<ValueRecord>> values_;
    size_t bytes_ = 0;
};

inline void KeptReads::Keep(const std::string& parent, const std::string& folded, Child child) {
    Count(400);
    places_[child.id] = {parent, folded};
    children_[parent].found[folded] = std::move(child);
}

inline void KeptReads::Keep(const std::string& id, const std::string& folded, ValueRecord value) {
    if (value.data.size() > kMostDataBytes) value.data.clear();
    Count(value.data.size() + 200);
    values_[id].found[folded] = std::move(value);
}

inline void KeptReads::DropTree(const std::string& id) {
    for (std::vector<std::string> gone = {id}; !gone.empty();) {
        const std::string one = std::move(gone.back());
        gone.pop_back();
        for (const auto& [folded, child] : children_[one].found) gone.push_back(child.id);
        children_.erase(one);
        values_.erase(one);
        places_.erase(one);
    }
}

inline std::vector<std::string> KeptReads::ReadNext(const std::string& id, size_t most) {
    const auto place = places_.find(id);
    if (place == places_.end()) return {};
    const auto& siblings = children_[place->second.first].found;
    auto at = siblings.find(place->second.second);
    if (at == siblings.end()) return {};
    if (at != siblings.begin() && !HasAll(std::prev(at)->second.id)) return {};
    std::vector<std::string> next;
    while (++at != siblings.end() && next.size() < most && !HasAll(at->second.id))
        next.push_back(at->second.id);
    return next;
}

}  // namespace cluster
