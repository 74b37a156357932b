// SPDX-License-Identifier: MIT
// The pages that a change writes in their places, as page 1 tells of them before they are written.
//
// Such a change needs one writing of page 1: who reads without the lock takes a page that stands on
// the list for what it says when its digest is the one of the list, and for a page that is just
// being written otherwise. So no reader sees a page half old and half new, and none goes on with
// the state before a change once it is done. Page 1 has room for the list behind the superblock.
#pragma once

#include "storage/core/Context.h"

namespace storage {

// Has page 1 the room? Not in the smallest pages; a container of the other byte order does without.
bool HasSwitchList(const StorageContext* context) ZRFS_REQUIRES(context->containerLock);
// The digest of a page of `size` bytes, a power of two from 256 up.
uint64_t DigestPage(const uint8_t* page, uint32_t size);

// Into page 1 in memory, which is written next with the counter that it has now.
void PutSwitchList(StorageContext* context, const SwitchList& list)
    ZRFS_REQUIRES(context->containerLock);
void ClearSwitchList(StorageContext* context) ZRFS_REQUIRES(context->containerLock);
// The list of page 1 in memory, which was just read. False when it is not that of the counter
// beside it: somebody was writing the page while it was read, or who wrote it knows of no list.
bool GetSwitchList(const StorageContext* context, SwitchList* list)
    ZRFS_REQUIRES(context->containerLock);
// Are all pages in the file as a list says? Somebody who was killed may have left them otherwise.
// The caller keeps writers off.
bool AreSwitched(StorageContext* context, const SwitchList& list)
    ZRFS_REQUIRES(context->containerLock);
// Is a page that was read what a reader without the lock has to find?
bool IsAsAwaited(const StorageContext* context, const uint8_t* page, uint32_t number)
    ZRFS_REQUIRES(context->containerLock);

}  // namespace storage
