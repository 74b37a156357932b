// SPDX-License-Identifier: MIT
// A value and a subkey of one name: the value makes room and comes back.
#pragma once

#include "FS_Library_DLL/keystore/FsStoreContext.h"

// If a value stands at `path`, moves it to its marked path; open handles on it follow. 0 also when
// there is nothing to move. The caller holds the store's lock. kInternal when there is no memory,
// else the engine's code.
storage::Status FS_MoveValueAside(const WChar* path, FsStoreContext* context)
    ZRFS_REQUIRES(context->lock);
// The inverse, after the key at `path` is gone.
storage::Status FS_MoveValueBack(const WChar* path, FsStoreContext* context)
    ZRFS_REQUIRES(context->lock);

// Is the entry at `path` there, and a key?
storage::Status FsIsKey(const WChar* path, FsStoreContext* context, bool* isKey);
