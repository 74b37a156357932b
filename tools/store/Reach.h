// SPDX-License-Identifier: MIT
// Walking over what a store lists and does not give. A hive, the live registry or a damaged
// container may list names by which nothing can be asked for: a walk tells of each and goes on.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/store/Store.h"

namespace fbr {

// Told, in a text for people, of each key and value that a walk leaves out. It may be empty.
using OnLoss = std::function<void(const std::string&)>;

// A name as it is listed. The interface ends a name at its first zero, takes a backslash in the
// name of a key for the next level and an empty one for the key above: asking by such a name gives
// another key, or the same one for ever.
struct Listed {
    platform::WString name;
    bool reachable = true;
};

// In the store's order. What cannot be reached has been told, and where the list breaks off.
std::vector<Listed> ListSubkeys(const Key& key, const OnLoss& onLoss);
std::vector<Listed> ListValues(const Key& key, const OnLoss& onLoss);
// How many there are, of which none is told.
size_t CountValues(const Key& key, const OnLoss& onLoss);
// Those of them that can be reached.
std::vector<platform::WString> ReachableSubkeys(const Key& key, const OnLoss& onLoss);
std::vector<platform::WString> ReachableValues(const Key& key, const OnLoss& onLoss);

// Nothing, and told, for one that this store cannot give. Throws StoreError where the store as a
// whole fails, and Interrupted after an interrupt.
std::optional<Key> TryOpen(const Key& key, const platform::WString& name, const OnLoss& onLoss);
// Data that ends before its size is given as far as it goes, and told.
std::optional<Value> TryGet(const Key& key, const platform::WString& name, const OnLoss& onLoss);

// The words for that.
std::string ShowShortData(const Key& key, platform::WStringView name, const Value& value,
                          uint64_t missing);

}  // namespace fbr
