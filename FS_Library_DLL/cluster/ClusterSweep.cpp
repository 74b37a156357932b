// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/ClusterSweep.h"

#include "FS_Library_DLL/cluster/ClusterDelete.h"

namespace cluster {

FBR_STATUS CheckStore(ClusterStore& store) {
    return store.isDamaged ? FSSTATUS_FILE_CORRUPT : FSSTATUS_SUCCESS;
}

FBR_STATUS SweepStore(ClusterStore& store) {
    return DeleteGone(store);
}

}  // namespace cluster
