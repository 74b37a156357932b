// The state of one open container.
//
// One lock guards it all: every public operation holds containerLock from start to end, so what
// is below needs none of its own.
#pragma once

#include <cstdint>
#include <mutex>

#include "platform/PageFile.h"
#include "platform/Resources.h"
#include "platform/Text.h"
#include "storage/core/CachePage.h"
#include "storage/core/Format.h"
#include "storage/core/HashTable.h"
#include "storage/core/ItemList.h"
#include "storage/core/List.h"
#include "storage/core/Status.h"
#include "storage/core/Transaction.h"

namespace storage {

using platform::WChar;

struct DirEntry;
struct FileObject;
struct ObjectState;  // the objects, handles and searches: storage/namespace/ObjectState.h

inline constexpr uint32_t kUnknownPages = 0xFFFFFFFF;
inline constexpr uint32_t kCacheLimit = 256;  // buffers

struct StorageContext {
    // Sharing between processes.
    platform::Handle lockMutex = nullptr;
    platform::Handle sharedMapping = nullptr;
    uint32_t* sharedGeneration = nullptr;
    uint32_t seenGeneration = 0;
    uint32_t lockDepth = 0;  // locks taken and not released through this context

    std::recursive_mutex containerLock;
    bool active = false;
    bool readOnly = false;
    bool logInFile = false;
    bool updateAccessTime = false;
    bool byteSwapped = false;
    bool caseSensitive = false;
    bool compacting = false;
    bool searchEnabled = true;
    bool wroteSinceLock = false;
    bool grewSinceFlush = false;
    bool wroteSinceOpen = false;  // the superblock is due at close
    uint16_t separator = '/';
    uint32_t autoCompactPercent = 0;
    double lastAccess = 0;
    double created = 0;

    uint32_t pageSize = 0;
    uint32_t payloadSize = 0;
    uint32_t pageShift = 0;
    uint32_t knownPages = 0;  // pages covered by the map scan; kUnknownPages before it
    uint32_t totalPages = 0;  // pages in the file
    uint32_t basePage = 0;
    uint8_t* swapBuffer = nullptr;
    WChar* path = nullptr;
    WChar* logPath = nullptr;
    bool externalFile = false;  // the file was handed in and is not closed here
    platform::PageFile* file = nullptr;
    platform::PageFile* logFile = nullptr;
    uint8_t* superblock = nullptr;  // page 1, resident while open

    // Page cache.
    HashTable<CachePage, &CachePage::number, &CachePage::hashNext> pageTable;
    List<CachePage, &CachePage::lruPrev, &CachePage::lruNext> lru;  // oldest first
    uint32_t cacheLimit = kCacheLimit;
    uint32_t cachedPages = 0;  // buffers held
    bool evicting = false;
    CachePage* sparePages = nullptr;  // descriptors kept for reuse, chained by hashNext
    uint8_t* spareBuffers = nullptr;  // page buffers kept for reuse, chained by their first bytes
    uint32_t spareCount = 0;          // of both kinds together, bounded

    // Page map.
    uint32_t freeCount = 0;
    uint32_t firstFree = kUnknownPages;
    uint32_t lastFree = 0;
    uint32_t mapPagesKnown = 0;
    NumberList freeCounts;  // one a map page
    PointerList<CachePage> dirtyMapPages;

    // Transactions.
    List<StorageTransaction, &StorageTransaction::prev, &StorageTransaction::next> transactions;
    StorageTransaction* spareTransactions = nullptr;  // kept for reuse, chained by next

    // The floors above, reached from below.
    const ObjectHooks* objectHooks = nullptr;
    Status (*compact)(StorageContext* context, uint8_t* done) = nullptr;
    ObjectState* objects = nullptr;

    Superblock* Super() const { return reinterpret_cast<Superblock*>(superblock); }
    uint32_t MapGroup() const { return pageSize / 2; }  // pages from one map page to the next
    bool IsMapPage(uint32_t page) const { return (page & (MapGroup() - 1)) == 0; }
};

}  // namespace storage
