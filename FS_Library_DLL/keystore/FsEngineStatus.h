// SPDX-License-Identifier: MIT
// From the engine's codes to the statuses that callers see.
#pragma once

#include "include/ZrFsTypes.h"
#include "storage/core/Status.h"

// The last step of every operation on a container. A code without a status of its own is
// FSSTATUS_FAILED.
FBR_STATUS FsStatusFromEngine(storage::Status code);
