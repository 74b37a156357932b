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
    bool HasAll(const std::string& id) const;
    void Keep(const std::string& parent, const std::string& folded, Child child);
    // Of a value that is set or read. Long data are not kept.
    void Keep(const std::string& id, const std::string& folded, ValueRecord value);
    // Where a key's own record tells that it is, see PlaceText; empty where that was not read.
    void KeepPlace(const std::string& id, const std::string& place) { told_[id] = place; }
    std::string PlaceOf(const std::string& id) const;
    // A key that is gone, with what is known to be below it.
    void DropTree(const std::string& id);
    // The next keys behind this one that were not read yet, if the one before it was: who goes
    // through a store asks for them next.
    std::vector<std::string> ReadNext(const std::string& id, size_t most) const;
    // When something in a key changed last.
    void KeepTime(const std::string& id, const platform::UtcTime& time) { times_[id] = time; }
    const platform::UtcTime* FindTime(const std::string& id) const;
    // Something changes.
    void ForgetTimes() { times_.clear(); }
    void Clear() { *this = {}; }
    // Between two operations: drops what is too much, values before keys, by which one who goes
    // through a store finds the next.
    void Trim();

  private:
    static constexpr size_t kMostValueBytes = 24u << 20;
    static constexpr size_t kMostKeyBytes = 48u << 20;

    static constexpr size_t kMostDataBytes = 64 * 1024;
    static constexpr int kMostLookedAt = 1000;

    void AddUnread(const std::string& id, size_t most, int* looks,
                   std::vector<std::string>* next) const;

    std::unordered_map<std::string, Names<Child>> children_;
    std::unordered_map<std::string, std::pair<std::string, std::string>> places_;  // of children
    std::unordered_map<std::string, Names<ValueRecord>> values_;
    std::unordered_map<std::string, platform::UtcTime> times_;
    std::unordered_map<std::string, std::string> told_;
    size_t keyBytes_ = 0, valueBytes_ = 0;
};

}  // namespace cluster
