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
    // Of a value that is set or read.
    void Keep(const std::string& id, const std::string& folded, ValueRecord value);
    void Drop(const std::string& id) {
        children_.erase(id);
        values_.erase(id);
    }
    void Clear() { *this = {}; }
    // What was added; and, between two operations, whether it is too much.
    void Count(size_t bytes) { bytes_ += bytes; }
    void Trim() {
        if (bytes_ > kMostBytes) Clear();
    }

  private:
    static constexpr size_t kMostBytes = 32u << 20;

    std::unordered_map<std::string, Names<Child>> children_;
    std::unordered_map<std::string, Names<ValueRecord>> values_;
    size_t bytes_ = 0;
};

inline void KeptReads::Keep(const std::string& id, const std::string& folded, ValueRecord value) {
    const size_t bytes = value.data.size() + 200;
    values_[id].found[folded] = std::move(value);
    Count(bytes);
}

}  // namespace cluster
