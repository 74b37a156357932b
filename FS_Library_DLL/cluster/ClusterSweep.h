// SPDX-License-Identifier: MIT
// All of a store at once: is it whole, and what is left in it that nothing refers to.
#pragma once

#include "FS_Library_DLL/cluster/ClusterStore.h"

namespace cluster {

// FSSTATUS_FILE_CORRUPT when a record is none, or refers to one that is missing or hangs elsewhere.
// Each is told.
FBR_STATUS CheckStore(ClusterStore& store) ZRFS_REQUIRES(store.lock);

// Deletes what was left by writers that died, under the store's lock, and makes records of keys
// that have lost theirs. Where a record is none, it deletes nothing else, and answers
// FSSTATUS_FILE_CORRUPT.
FBR_STATUS SweepStore(ClusterStore& store) ZRFS_REQUIRES(store.lock);

}  // namespace cluster
