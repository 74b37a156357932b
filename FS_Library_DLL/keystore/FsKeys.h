// SPDX-License-Identifier: MIT
// The keys of a store. What they do for a caller stands with the exported functions of the same
// names in include/ZrFsLibrary.h.
#pragma once

#include "FS_Library_DLL/keystore/FsStoreContext.h"
#include "include/ZrFsTypes.h"

FBR_STATUS FS_CreateDirEx(int64_t parent, const WChar* name, FBR_CREATEOPTIONS options,
                          int64_t* key, FsStoreContext* context);
FBR_STATUS FS_OpenDirEx(int64_t parent, const WChar* name, int64_t* key, FsStoreContext* context);
FBR_STATUS FS_RenameDirEx(int64_t key, const WChar* newName, FsStoreContext* context);
FBR_STATUS FS_CloseDirEx(int64_t key, FsStoreContext* context);
FBR_STATUS FS_GetName_DirEx(int64_t key, WChar** name, FsStoreContext* context);
FBR_STATUS FS_GetFullName_DirEx(int64_t key, WChar** name, FsStoreContext* context);
FBR_STATUS FS_DuplicateDirHandleEx(int64_t key, int64_t* newKey, FsStoreContext* context);
FBR_STATUS FS_GetDirTimesEx(int64_t key, FBR_SYSTEMTIME* time, FsStoreContext* context);

// The same whatever its name. Nobody outside of this tree can call it.
FBR_STATUS FsTimeOfAnyKey(int64_t key, FBR_SYSTEMTIME* time, FsStoreContext* context);
