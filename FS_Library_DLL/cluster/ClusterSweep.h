// SPDX-License-Identifier: MIT
// All of a store at once: is it whole, and what is left in it that nothing refers to.
#pragma once

#include "FS_Library_DLL/cluster/ClusterStore.h"

namespace cluster {

// FSSTATUS_FILE_CORRUPT when a record is none, or refers to one that is missing.
FBR_STATUS CheckStore(ClusterStore& store) ZRFS_REQUIRES(store.lock);

// Deletes what was left by writers that died, under the store's lock. Nothing, and the answer of
// CheckStore, where a record is none.
FBR_STATUS SweepStore(ClusterStore& store) ZRFS_REQUIRES(store.lock);

}  // namespace cluster
