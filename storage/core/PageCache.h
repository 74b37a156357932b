// SPDX-License-Identifier: MIT
// One cache for each container: every page above the raw layer passes here, pinned while used.
#pragma once

#include "storage/core/Context.h"

namespace storage {

// Finds or makes the descriptor of page `number` and pins it. `load` reads the page if it has no
// buffer. With a transaction the page joins it: kSharing when another one has it. On failure
// *page is null and nothing is pinned.
Status GetPage(StorageContext* context, uint32_t number, CachePage** page, bool load,
               StorageTransaction* transaction);

// GetPage with its content, then the test that the page is of kind `kind` and, but for map pages,
// belongs to `fileId`; kCorrupt otherwise.
Status GetPageChecked(StorageContext* context, uint32_t number, uint16_t kind, CachePage** page,
                      uint32_t fileId, StorageTransaction* transaction);
// GetPage with a buffer for a content that is made anew.
Status GetPageToFill(StorageContext* context, uint32_t number, CachePage** page,
                     StorageTransaction* transaction);

// Drops a pin (or, without `unpin`, only files the page where it belongs). Null is ignored.
void ReleasePage(StorageContext* context, CachePage* page, bool unpin = true);

// The page's buffer was or will be changed by the transaction it is in. kReadOnly in a read-only
// container.
Status MarkPageChanged(StorageContext* context, CachePage* page);
// The same for a change of times alone: such a page may be written by itself at any moment of the
// commit, for no state of the file depends on it.
Status MarkPageTouched(StorageContext* context, CachePage* page);

// A free page, or a new one at the end of the file, pinned, zeroed but for kind and number, and
// on the transaction's list; where that costs nothing, one just before the page `before`. Pages
// freed since the last commit are not among them.
Status AllocatePage(StorageContext* context, uint16_t kind, CachePage** page,
                    StorageTransaction* transaction, uint32_t before = 0);
// Marks a page freed and gives up the caller's pin; its map slot changes at the end of the commit,
// and until then it is as on disk for whoever reads the file. kSharing when somebody else has it
// pinned.
Status FreePage(StorageContext* context, CachePage* page);
// Frees every page of the chain from `first` on. A chain longer than the container is corrupt.
Status FreePageChain(StorageContext* context, uint32_t first, uint16_t kind, uint32_t fileId,
                     StorageTransaction* transaction);

// Writes the page if it is dirty. Its place in the order of a commit is the caller's business.
Status WriteCachedPage(StorageContext* context, CachePage* page);
// Writes the dirty pages of a transaction whose flags under `mask` are `wanted`, adjacent ones in
// one transfer.
Status WriteTransactionPages(StorageContext* context, StorageTransaction* transaction,
                             uint16_t mask, uint16_t wanted);
// The page's buffer is as on disk.
void MarkClean(StorageContext* context, CachePage* page);
// Lets buffers go, oldest first, while there are more than the limit. Those of changed pages stay:
// a change reaches the file by its commit alone, and the cache may pass its limit by them.
void EvictPages(StorageContext* context);
// Frees every descriptor, whatever its pins, without writing; for the end of a context.
void DestroyCache(StorageContext* context);

// For transactions: takes a page out of the cache without writing it.
void DiscardPage(StorageContext* context, CachePage* page);
// Page buffers, kept for reuse.
uint8_t* AllocateBuffer(StorageContext* context);
void ReleaseBuffer(StorageContext* context, uint8_t* buffer);

}  // namespace storage
