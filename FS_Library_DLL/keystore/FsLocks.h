// SPDX-License-Identifier: MIT
// The store's lock, shared with all processes that have the container open.
#pragma once

#include "FS_Library_DLL/keystore/FsStoreContext.h"
#include "include/ZrFsTypes.h"

// See FBR_GetLockEx and the operations beside it. The store's own lock is not taken: a waiting
// thread does not keep the others from reading.
FBR_STATUS FS_GetLockEx(uint32_t type, FsStoreContext* context);
FBR_STATUS FS_ReleaseLockEx(uint32_t type, FsStoreContext* context);
FBR_STATUS FS_GetLockTypeEx(uint32_t* type, FsStoreContext* context);

// Frees the nodes of locks that were never released.
void FsFreeLockStack(FsStoreContext* context);
