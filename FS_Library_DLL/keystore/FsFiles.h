// SPDX-License-Identifier: MIT
// The values of a store as files: opening, reading, writing, deleting. The record inside is the
// business of FsValues.h.
//
// A value handle is the engine's file handle. Every function that takes one needs a handle that one
// of the first two gave and that is still open.
#pragma once

#include "FS_Library_DLL/keystore/FsStoreContext.h"
#include "include/ZrFsTypes.h"
#include "storage/namespace/Operations.h"

// `key` is an open key; 0 is not one: FSSTATUS_FAILED. A null or empty name is "(Default)".
// Create makes the value or opens and empties it: FSSTATUS_SUCCESS in both cases. Without a write
// lock FSSTATUS_LOCK_FAILED.
FBR_STATUS FS_CreateFileEx(int64_t key, const WChar* name, storage::FileHandle** file,
                           FsStoreContext* context);
// FSSTATUS_NOT_FOUND for a missing value, also when there is only a subkey of the name.
FBR_STATUS FS_OpenFileEx(int64_t key, const WChar* name, storage::FileHandle** file,
                         FsStoreContext* context);
FBR_STATUS FS_CloseFileEx(storage::FileHandle* file, FsStoreContext* context);
// Deletes the value under its name, closing all handles on it. A null or empty name is refused.
FBR_STATUS FS_DeleteFileNamedEx(int64_t key, const WChar* name, FsStoreContext* context);
// Deletes the value through its handle, which is closed and set to null even if the value stays.
FBR_STATUS FS_DeleteFileEx(storage::FileHandle** file, FsStoreContext* context);

// From the start of the value or from where the last transfer ended. `size` in bytes is cut to 32
// bits. `done` gets the number of bytes moved. Reading at the end gives 0 bytes and success.
FBR_STATUS FS_ReadFileEx(storage::FileHandle* file, void* buffer, uint64_t size, uint64_t* done,
                         bool fromStart, FsStoreContext* context);
// A null buffer will do for 0 bytes. Needs a write lock.
FBR_STATUS FS_WriteFileEx(storage::FileHandle* file, const void* buffer, uint64_t size,
                          uint64_t* done, bool fromStart, FsStoreContext* context);

// The whole content of a value, made or overwritten in one step of the library's own engine. The
// caller is in a change. kNotPlain, and nothing is done: it is to be created and written.
storage::Status FsPutFile(int64_t key, const WChar* name, const storage::FileContent& content,
                          FsStoreContext* context);
