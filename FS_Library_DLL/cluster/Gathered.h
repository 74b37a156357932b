// SPDX-License-Identifier: MIT
// Changes of the holder of the lock that go to the cluster together, as one.
#pragma once

#include <set>
#include <unordered_map>
#include <vector>

#include "FS_Library_DLL/cluster/EtcdApi.h"

namespace cluster {

// One change: it is made as a whole, under the store's lock, or not at all.
struct Change {
    std::vector<Compare> compares;
    std::vector<Operation> operations;
    // Where a compare of the caller's fails, nothing is changed, and these are answered.
    std::vector<Operation> onConflict = {};
    bool isConflict = false;
    std::vector<RangeReply> answers = {};
    int64_t revision = 0;

    bool Fits(size_t more) const { return operations.size() + more < kMostOperations; }
};

// What several of them come to. They only put records, and delete what has none of those put.
class Gathered {
  public:
    bool IsEmpty() const { return all_.operations.empty(); }
    // False, and nothing is added, when it would be too much for one transaction.
    bool Add(const Change& change);
    // All of it, which is then no more here.
    Change Take();

  private:
    void AddPut(const Operation& put);

    Change all_ = {};
    std::unordered_map<std::string, size_t> puts_;  // by their records
    std::set<std::pair<std::string, std::string>> compared_, deleted_;
    size_t bytes_ = 0;
};

}  // namespace cluster
