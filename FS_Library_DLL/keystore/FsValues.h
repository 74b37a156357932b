// SPDX-License-Identifier: MIT
// The record inside a value's file: u32 type, u32 size, then the data, little-endian.
#pragma once

#include "FS_Library_DLL/keystore/FsStoreContext.h"
#include "include/ZrFsTypes.h"

struct FsValueHeader {
    uint32_t type;
    uint32_t size;
};
static_assert(sizeof(FsValueHeader) == 8);

// See FBR_SetValue, FBR_QueryValue and FBR_DeleteValue. The store's lock is not held from one file
// operation to the next.
FBR_STATUS FsSetValue(int64_t key, const WChar* name, uint32_t type, const void* data,
                      uint64_t size, FsStoreContext* context);
FBR_STATUS FsQueryValue(int64_t key, const WChar* name, void* buffer, uint64_t bufferSize,
                        uint64_t* size, uint32_t* type, FsStoreContext* context);
FBR_STATUS FsDeleteValue(int64_t key, const WChar* name, FsStoreContext* context);
