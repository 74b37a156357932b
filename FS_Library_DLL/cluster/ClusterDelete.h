// SPDX-License-Identifier: MIT
// Keys deleted.
#pragma once

#include "FS_Library_DLL/cluster/ClusterWalk.h"

namespace cluster {

// FSSTATUS_DIR_NOT_EMPTY, and nothing changed, for a key with subkeys.
FBR_STATUS DeleteKey(ClusterStore& store, const OpenedKey& key) ZRFS_REQUIRES(store.lock);

// Takes the key off the tree in one transaction, and then deletes what hangs below it. The root
// stays, and loses its keys in as many transactions as it takes.
FBR_STATUS DeleteTree(ClusterStore& store, const std::vector<WString>& parts)
    ZRFS_REQUIRES(store.lock);

// Goes on with what a deletion left that did not come to its end.
FBR_STATUS DeleteGone(ClusterStore& store) ZRFS_REQUIRES(store.lock);

}  // namespace cluster
