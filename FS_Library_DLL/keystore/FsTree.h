// SPDX-License-Identifier: MIT
// Deleting keys with all that is in them.
#pragma once

#include "FS_Library_DLL/keystore/FsStoreContext.h"
#include "include/ZrFsTypes.h"

// See FBR_DeleteDirEx and FBR_DeleteDirNamedEx.
FBR_STATUS FS_DeleteDirEx(int64_t key, FsStoreContext* context);
FBR_STATUS FS_DeleteDirNamedEx(const WChar* name, FsStoreContext* context);

inline constexpr uint32_t kMaxTreeDepth = 512;

// Deletes the values of the key at the stored `path`, its subkeys if `recurse`, and the key itself;
// the root ("\") is only emptied. The caller holds the store's lock and has tested for a write
// lock. `depth` is that of the key, 0 at the start. kTreeDelete for a tree deeper than
// kMaxTreeDepth or a subkey without a name, kInternal without memory, kNotEmpty when something is
// left, else the engine's code.
storage::Status FS_DeleteTree(FsStoreContext* context, WStringView path, bool recurse,
                              uint32_t depth) ZRFS_REQUIRES(context->lock);
