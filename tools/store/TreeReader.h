// SPDX-License-Identifier: MIT
// Walks a key and all below it, depth first, however deep.
#pragma once

#include <functional>

#include "tools/format/Record.h"
#include "tools/store/Reach.h"

namespace fbr {

// The store's own order, or by name, which is the same for stores of every kind.
enum class Order { kStores, kByName };

// Depth first, however deep: `onKey` is told of the key and of each one below it, parents first.
void WalkKeys(const Store& store, platform::WStringView root, const OnLoss& onLoss,
              const std::function<void(const Key&)>& onKey, Order order = Order::kStores);

// Names as a container compares them, and in one order where it takes them for the same.
void SortNames(std::vector<platform::WString>& names);

// Gives `sink` the key at `root`, its values, then each subkey with all below it, in the store's
// order or by name. `onKey` is told of each key, `onLoss` of what is listed and cannot be had; both
// may be empty. At any time only the keys on the way from the root to where the walk stands are
// open.
void ReadTree(const Store& store, platform::WStringView root, RecordSink& sink,
              const std::function<void()>& onKey, const OnLoss& onLoss,
              Order order = Order::kStores);

// The values of one key.
void ReadValues(const Key& key, RecordSink& sink, const OnLoss& onLoss, Order order);

// The number of keys that ReadTree will give.
uint64_t CountKeys(const Store& store, platform::WStringView root);

}  // namespace fbr
