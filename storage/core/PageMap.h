// SPDX-License-Identifier: MIT
// The page map: which pages are free, and where the file grows.
#pragma once

#include "storage/core/Context.h"

namespace storage {

// Reads map pages not yet known: all of them, or up to the group `limit`, or (limit 0) until a
// free page is known.
Status ScanPageMap(StorageContext* context, bool all, uint32_t limit);
// Writes a map slot and keeps the free counts. `force` writes it though it has the kind already,
// and takes nothing off the counts (the page was never counted). kReadOnly.
Status SetPageKind(StorageContext* context, uint32_t number, uint16_t kind, bool force);
// The kind that the map has for a page. kCorrupt for one that it does not reach.
// `map` is a map page that the caller has pinned, or null: it is given back for another one.
Status GetPageKind(StorageContext* context, uint32_t number, CachePage** map, uint16_t* kind);
// SetPageKind for `count` pages from `first` on that have one map page, and whether all of such are
// free.
Status SetPageKinds(StorageContext* context, uint32_t first, uint32_t count, uint16_t kind);
bool AreFreePages(StorageContext* context, uint32_t first, uint32_t count);
// The pages become free: SetPageKind for each.
Status FreeInMap(StorageContext* context, NumberList& pages);
// Brings the map page of `number` into memory and makes room for `count` map pages among the
// changed ones, so that SetPageKind needs neither memory nor the file.
Status PreparePageKind(StorageContext* context, uint32_t number, uint32_t count);
// kFull when there is none.
Status FindFreePage(StorageContext* context, uint32_t* number);
// A free page, or the first of a batch that grows the file. `buffer` is a page of the caller,
// zeroed here; kind and number may have been written into it.
Status AllocatePageNumber(StorageContext* context, uint16_t kind, uint32_t* number,
                          uint8_t* buffer);
// Makes the file longer by pages that are free. kFull.
Status GrowAhead(StorageContext* context);
// Writes the changed map pages. All are tried; the first failure is returned.
Status FlushMapPages(StorageContext* context);

// Changes of the map that were taken back before they reached the file are none.
void ForgetMapChanges(StorageContext* context);

}  // namespace storage
