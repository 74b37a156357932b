// SPDX-License-Identifier: MIT
// Checking, repairing and compacting a container.
#pragma once

#include "FS_Library_DLL/keystore/FsStoreContext.h"
#include "include/ZrFsTypes.h"

// See FBR_CheckFileEx and FBR_CheckAndRepairFileEx. A null callback stands for FS_ProgressUpdate.
FBR_STATUS FS_CheckFileEx(const WChar* path, FBR_CheckCallback callback);
FBR_STATUS FS_CheckAndRepairFileEx(const WChar* path, FBR_CheckCallback callback);
// FS_CheckFileEx; `locked` when the caller holds the container's lock.
FBR_STATUS FsCheckFile(const WChar* path, FBR_CheckCallback callback, bool locked);

// Traces a corrupt directory entry (code 15), and turns the trace on for it if that is switched on.
// A null name and every other code are ignored.
void FS_ProgressUpdate(const WChar* name, uint32_t code, uint32_t page);

// See FBR_CheckFile, FBR_IsCorrupted and FBR_Compact.
FBR_STATUS FsCheckStore(FsStoreContext* context);
FBR_STATUS FsIsCorrupted(uint32_t* corrupted, FsStoreContext* context);
FBR_STATUS FsCompact(uint32_t* done, FsStoreContext* context);
