// SPDX-License-Identifier: MIT
// The keys that go when the store is closed.
#pragma once

#include "FS_Library_DLL/keystore/FsStoreContext.h"

// Both run under the store's lock. A key that finds no memory is not volatile.
void FsAddVolatileKey(WStringView path, FsStoreContext* context) ZRFS_REQUIRES(context->lock);
// Ends the volatility of a key that was made or opened again.
void FsDropVolatileKey(WStringView path, FsStoreContext* context) ZRFS_REQUIRES(context->lock);
// Deletes all of them, as far as the store's lock allows, and forgets them.
void FsDeleteVolatileKeys(FsStoreContext* context) ZRFS_REQUIRES(context->lock);
