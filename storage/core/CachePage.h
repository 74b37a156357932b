// SPDX-License-Identifier: MIT
// The descriptor of one cached page.
#pragma once

#include <cstdint>

namespace storage {

struct StorageTransaction;

enum CachePageFlag : uint16_t {
    kPageHasBuffer = 1,      // the buffer counts in cachedPages
    kPageDirty = 2,          // the buffer differs from disk
    kPageVital = 4,          // what refers to other pages, or content, changed; not times alone
    kPageInTransaction = 8,  // on a transaction's list
    kPageNew = 16,           // allocated in the current transaction
    kPageFreed = 32,         // freed in the current transaction
    kPageChanged = 64,       // changed since the last commit; set together with kPageDirty
    kPageSpare = 256,        // came from the spare pages: the map has it as taken
    kPageInCall = 512,       // new, and written in one call with what refers to it
    kPageOnLru = 128,        // unpinned and as on disk: its buffer may go
    kPageOnMapLru = 1024,    // with kPageOnLru: on the list of map pages
};

struct CachePage {
    uint8_t* buffer;
    uint32_t number;
    StorageTransaction* transaction;
    CachePage* lruPrev;
    CachePage* lruNext;
    CachePage* txPrev;
    CachePage* txNext;
    CachePage* hashNext;
    uint32_t pinCount;
    uint16_t flags;
    uint16_t mapKind;        // kind for the page map at commit
    uint32_t dirtyMapIndex;  // 1 + place in dirtyMapPages, 0 when not in it
};

// What a page's buffer holds while it is kept for reuse.
struct SpareBuffer {
    SpareBuffer* next;
};

}  // namespace storage
