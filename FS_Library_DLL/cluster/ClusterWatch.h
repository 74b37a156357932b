// SPDX-License-Identifier: MIT
// Waiting for what others change.
#pragma once

#include "FS_Library_DLL/cluster/ClusterNames.h"
#include "include/ZrFsTypes.h"

namespace cluster {

// Until a key or a value was changed behind the revision, or `goesOn` is false. FSSTATUS_FAILED
// when no member has answered for the patience that the settings tell.
FBR_STATUS WaitForChange(const std::shared_ptr<const EtcdSettings>& settings,
                         const RecordNames& names, int64_t revision,
                         const EtcdHttp::GoesOn& goesOn);

}  // namespace cluster
