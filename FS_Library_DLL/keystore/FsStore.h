// SPDX-License-Identifier: MIT
// The two ends of a store's life.
#pragma once

#include "FS_Library_DLL/keystore/FsStoreContext.h"
#include "include/ZrFsTypes.h"

inline constexpr uint32_t kNewPageSize = 512;
inline constexpr uint32_t kStoreVersion = 2;

// Opens the container at `path`, or makes one where there is no file: beside it, and whole, before
// it gets the name. *out is the caller's until FsCloseStore; null on failure.
// FSSTATUS_INVALID_PARAMETER for a null or empty path, FSSTATUS_VERSION_MISMATCH for a version
// record that is not kStoreVersion; a container without one is stamped.
FBR_STATUS FS_InitialiseEx(const WChar* path, FsStoreContext** out);

// Deletes the volatile keys if a write lock is held, closes the container and the trace log of the
// process, and frees the context in every case. No other thread may be in an operation on it.
FBR_STATUS FsCloseStore(FsStoreContext* context);
