// The short way to a value, past paths and files: for the library's own engine, where nothing is
// traced. What it leaves open is asked for the long way.
#pragma once

#include "FS_Library_DLL/keystore/FsStoreContext.h"
#include "include/ZrFsTypes.h"

// Is there a key at `path`? *hint then says where. False where the long way has to answer.
bool FsLookUpKey(const WChar* path, FsStoreContext* context, storage::DirectoryHint* hint);

// As FsQueryValue, `size` not null. False where the long way has to answer; nothing is said of the
// outputs then.
bool FsLookUpValue(int64_t key, const WChar* name, void* buffer, uint64_t bufferSize,
                   uint64_t* size, uint32_t* type, FsStoreContext* context, FBR_STATUS* status);
