// SPDX-License-Identifier: MIT
// Copies a key and all below it to another place, of the same store or of another.
#pragma once

#include <functional>

#include "tools/store/Place.h"
#include "tools/store/Reach.h"

namespace fbr {

// Keys, and the names, types and data of values: what is at `to` already stays, but for values that
// `from` has too. The version value of a store is left out. The caller holds the write lock of
// `to`, which must not be `from` or stand below it. `onKey` is told of each key, `onLoss` also
// of each value that has no place at `to`. Throws StoreError, and what `onKey` throws to
// stop it: what was copied by then stays, and the text tells how much that is.
void CopyTree(const Place& from, const Place& to, const std::function<void()>& onKey,
              const OnLoss& onLoss);

}  // namespace fbr
