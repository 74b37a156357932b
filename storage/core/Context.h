// The state of one open container.
//
// Two locks guard it. containerLock is that of the threads: every public operation holds it from
// start to end, so what is below needs none of its own. `lock` is that of the file: nothing is
// written without it, and what memory holds is known to be the file's state only under it, or after
// a look at page 1 (storage/lifecycle/Sharing.h).
#pragma once

#include <cstdint>
#include <mutex>

#include "platform/FileLock.h"
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
    platform::FileLock* lock = nullptr;      // goes with `file`
    platform::Handle lockMutex = nullptr;    // where the system has names for such
    platform::Handle sharedMapping = nullptr;
    uint32_t* sharedGeneration = nullptr;
    uint32_t seenCounter = 0;     // transactionCounter of page 1 as memory was last in line with it
    bool stale = false;           // memory is not to be trusted: it is read again before its next use
    bool implicitLock = false;    // taken by a write that came without one
    uint32_t writers = 0;         // running transactions that may write
    bool changing = false;        // page 1 on disk says that a change is under way
    uint32_t changes = 0;         // counts what transactions did to pages
    bool everLocked = false;
    bool writingDenied = false;   // read-only only because another program would not have writers
    platform::PageFile* retiredFile = nullptr;  // the opening for reading, after one for writing
    platform::FileLock* retiredLock = nullptr;
    bool inlineEntries = false;   // a directory was loaded in a form that cannot be changed
    uint64_t pageReads = 0;       // counts transfers
    uint64_t readsBefore = 0;     // pageReads when the last read began
    uint32_t reading = 0;         // operations at work that must not write
    StorageTransaction* batch = nullptr;  // one transaction for several operations

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
    // Around a transaction that may write: the file's lock, if nobody has it through this context.
    // Memory is brought up to date when `mayReload`, else the lock is refused if it is not.
    Status (*enterWrite)(StorageContext* context, bool mayReload) = nullptr;
    void (*leaveWrite)(StorageContext* context) = nullptr;
    ObjectState* objects = nullptr;

    bool IsLocked() const { return lock != nullptr && lock->IsHeld(); }
    bool MayChange() const { return !readOnly && reading == 0; }
    Superblock* Super() const { return reinterpret_cast<Superblock*>(superblock); }
    uint32_t MapGroup() const { return pageSize / 2; }  // pages from one map page to the next
    bool IsMapPage(uint32_t page) const { return (page & (MapGroup() - 1)) == 0; }
};

}  // namespace storage
