// SPDX-License-Identifier: MIT
// Values of a key, and the names of what it holds.
#pragma once

#include "FS_Library_DLL/cluster/ClusterStore.h"

namespace cluster {

// One transaction; what is long is written before it, where nobody looks.
FBR_STATUS SetValue(ClusterStore& store, const OpenedKey& key, ValueRecord value)
    ZRFS_REQUIRES(store.lock);

FBR_STATUS DeleteValue(ClusterStore& store, const OpenedKey& key, const WString& name)
    ZRFS_REQUIRES(store.lock);

// The data is left out where it lies in pieces and is not wanted.
FBR_STATUS ReadValueOf(ClusterStore& store, const OpenedKey& key, const WString& name,
                       bool wantsData, ValueRecord* value) ZRFS_REQUIRES(store.lock);

// All names, of one state. With `mayBeKept` it may be a listing of before that is still so. The
// listing lives until the next operation.
FBR_STATUS List(ClusterStore& store, const OpenedKey& key, Kind kind, bool mayBeKept,
                const Listing** listing) ZRFS_REQUIRES(store.lock);

}  // namespace cluster
