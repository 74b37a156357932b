// SPDX-License-Identifier: MIT
// Keys: opened, made, renamed. Each change is one transaction; long paths are made from below, and
// are seen when their first key is.
#pragma once

#include "FS_Library_DLL/cluster/ClusterWalk.h"

namespace cluster {

// FSSTATUS_NOT_FOUND when one of the parts is missing.
FBR_STATUS OpenPath(ClusterStore& store, const OpenedKey& base, const std::vector<WString>& parts,
                    OpenedKey* opened) ZRFS_REQUIRES(store.lock);

// Makes what is missing. FSSTATUS_ALREADY_EXISTS, and the key opened, when nothing is.
FBR_STATUS MakePath(ClusterStore& store, const OpenedKey& base, const std::vector<WString>& parts,
                    bool isVolatile, OpenedKey* opened) ZRFS_REQUIRES(store.lock);

FBR_STATUS RenameKey(ClusterStore& store, const OpenedKey& key, const WString& newName)
    ZRFS_REQUIRES(store.lock);

// The time of the last change in a key.
FBR_STATUS KeyTime(ClusterStore& store, const OpenedKey& key, platform::UtcTime* time)
    ZRFS_REQUIRES(store.lock);

// Looks whether there is a root, and at it.
FBR_STATUS OpenRoot(ClusterStore& store) ZRFS_REQUIRES(store.lock);
// Where there was none, by who has the lock for changes.
FBR_STATUS MakeRoot(ClusterStore& store) ZRFS_REQUIRES(store.lock);

}  // namespace cluster
