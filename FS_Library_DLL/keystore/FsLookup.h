// SPDX-License-Identifier: MIT
// The short way to a value, past paths and files: for the library's own engine, where nothing is
// traced. What it leaves open is asked for the long way.
#pragma once

#include "FS_Library_DLL/keystore/FsStoreContext.h"
#include "include/ZrFsTypes.h"

// The path of a stored name below `parent`. One that is no open key counts as the root, for
// creating too, as include/ZrFsLibrary.h tells callers. False when there is no memory.
bool FsResolveUnderParent(int64_t parent, WStringView stored, FsStoreContext* context, FsText* path)
    ZRFS_REQUIRES(context->lock);

// Opens the key of that stored name below `parent` if there is one. False where the long way has to
// answer.
bool FsOpenFoundKey(int64_t parent, WStringView stored, FsStoreContext* context, int64_t* key);

// As FsQueryValue, `size` not null. False where the long way has to answer; nothing is said of the
// outputs then.
bool FsLookUpValue(int64_t key, const WChar* name, void* buffer, uint64_t bufferSize,
                   uint64_t* size, uint32_t* type, FsStoreContext* context, FBR_STATUS* status);
