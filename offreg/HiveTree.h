// SPDX-License-Identifier: MIT
// A hive in memory: keys, values and security descriptors. Not safe for several threads at once;
// memory that runs out is std::bad_alloc, and leaves the tree as it was.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "offreg/Names.h"

namespace offreg {

using Bytes = std::vector<uint8_t>;

// A hive is never deeper than this, whether read or made: the root has depth 0. Twice what the
// live registry allows, and small enough that no chain of paths grows out of hand.
inline constexpr uint32_t kMaxDepth = 1024;

struct Value {
    WString name;  // empty for the unnamed value
    uint32_t type = 0;
    Bytes data;
};

// A key's values in the order in which they were set first.
class ValueList {
  public:
    size_t Count() const noexcept { return items_.size(); }
    Value* At(size_t index) const noexcept { return items_[index].get(); }
    // Null when there is none.
    Value* Find(WStringView name);
    // Adds a value of a name that is not there yet.
    Value* Add(WString name);
    void Remove(const Value* value) noexcept;
    void Clear();

  private:
    void BuildIndex();

    std::vector<std::unique_ptr<Value>> items_;
    // Names that lie in the values themselves. Empty while the list is short.
    std::unordered_map<WStringView, Value*, NameHash, NameEqual> index_;
};

struct Key;

// Subkeys sorted by name, in runs of limited length so that neither adding, removing nor the n-th
// one costs much in a key of a hundred thousand subkeys. Owns nothing.
class SubkeyList {
  public:
    size_t Count() const noexcept { return count_; }
    Key* At(size_t index) const noexcept;
    // The first one of that name, null when there is none.
    Key* Find(WStringView name) const noexcept;
    // Adds behind those of the same name.
    void Insert(Key* key);
    void Remove(const Key* key) noexcept;

    template <class Visit>
    void ForEach(Visit visit) const {
        for (const Run& run : runs_) {
            for (const Key* key : run) visit(*key);
        }
    }

  private:
    using Run = std::vector<Key*>;

    size_t RunFor(WStringView name) const noexcept;
    void Split(size_t index, size_t keep);

    std::vector<Run> runs_;  // none of them empty
    size_t count_ = 0;
};

// A security descriptor in self-relative form, shared by all keys that have the same bytes.
struct Security {
    const Bytes* descriptor = nullptr;
    size_t users = 0;
};

struct Key {
    Key* parent = nullptr;  // null for the root
    uint32_t depth = 0;
    WString name;
    WString className;
    uint64_t lastWrite = 0;        // 100 ns since 1601
    Security* security = nullptr;  // null when the file named none
    bool isLink = false;
    bool deleted = false;
    uint32_t handles = 0;  // open handles; a deleted key lives until the last one goes
    SubkeyList subkeys;
    ValueList values;
    std::list<Key>::iterator self;
};

class Hive {
  public:
    // An empty root without a name.
    Hive();
    Hive(const Hive&) = delete;
    Hive& operator=(const Hive&) = delete;

    Key& Root() noexcept { return *root_; }
    const Key& Root() const noexcept { return *root_; }

    // Adds a key without looking for one of the same name. It shares its parent's security.
    Key* AddKey(Key& parent, WString name);
    // Takes a key without subkeys, not the root, out of the tree.
    void RemoveKey(Key& key) noexcept;
    // Frees a key that is deleted and no longer open.
    void Collect(Key& key) noexcept;

    void SetSecurity(Key& key, Bytes descriptor);
    void ShareSecurity(Key& key, Security* security) noexcept;

  private:
    std::list<Key> keys_;  // all of them, so that no tree is walked to free it
    Key* root_;
    std::map<Bytes, Security> securities_;
};

}  // namespace offreg
