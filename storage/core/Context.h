// SPDX-License-Identifier: MIT
// The state of one open container.
//
// Two locks guard it. containerLock is that of the threads: every public operation holds it from
// start to end, so what is below needs none of its own. `lock` is that of the file: nothing is
// written without it, and what memory holds is known to be the file's state only under it, or after
// a look at page 1 (storage/lifecycle/Sharing.h).
//
// What containerLock guards says so, and scripts/thread-analysis holds the public operations to it.
// Not guarded is what an opening sets once, before other threads know of the context, and what its
// end takes away, when they know of it no more: `lock`, which is waited for without containerLock
// and is safe in itself; the two paths; the functions of the floors above. What hangs on a guarded
// member is guarded with it.
#pragma once

#include <cstdint>

#include "platform/FileLock.h"
#include "platform/PageFile.h"
#include "platform/RecursiveMutex.h"
#include "platform/Resources.h"
#include "platform/Text.h"
#include "storage/core/CachePage.h"
#include "storage/core/CleanBlocks.h"
#include "storage/core/Format.h"
#include "storage/core/HashTable.h"
#include "storage/core/ItemList.h"
#include "storage/core/List.h"
#include "storage/core/SpareList.h"
#include "storage/core/SparePages.h"
#include "storage/core/Status.h"
#include "storage/core/Transaction.h"

namespace storage {

using platform::WChar;

struct DirEntry;
struct FileObject;
struct ObjectState;  // the objects, handles and searches: storage/namespace/FileObject.h

inline constexpr uint32_t kUnknownPages = 0xFFFFFFFF;
inline constexpr uint32_t kCacheLimit = 256;  // buffers

// Pages that the last change wrote in their places: storage/core/SwitchMark.h.
struct SwitchedPage {
    uint32_t number;
    uint64_t digest;
};
inline constexpr uint32_t kMostSwitched = 8;
struct SwitchList {
    uint32_t count = 0;
    SwitchedPage pages[kMostSwitched];
};

struct StorageContext {
    // Sharing between processes.
    platform::FileLock* lock = nullptr;  // goes with `file`
    // where the system has names for such
    platform::Handle lockMutex ZRFS_GUARDED_BY(containerLock) = nullptr;
    platform::Handle sharedMapping ZRFS_GUARDED_BY(containerLock) = nullptr;
    uint32_t* sharedGeneration ZRFS_GUARDED_BY(containerLock) = nullptr;
    // transactionCounter of page 1 as memory was last in line with it
    uint32_t seenCounter ZRFS_GUARDED_BY(containerLock) = 0;
    // memory is not to be trusted: it is read again before its next use
    bool stale ZRFS_GUARDED_BY(containerLock) = false;
    // the lock's turn that memory was brought up to date for; another thread may have begun to wait
    // for the next one
    uint64_t enteredTurn ZRFS_GUARDED_BY(containerLock) = 0;
    // taken by a write that came without one
    bool implicitLock ZRFS_GUARDED_BY(containerLock) = false;
    uint32_t writers ZRFS_GUARDED_BY(containerLock) = 0;  // running transactions that may write
    // page 1 came with a list of pages, and it is not known whether they are in the file
    bool unsettled ZRFS_GUARDED_BY(containerLock) = false;
    // that list; none when it could not be read
    SwitchList listed ZRFS_GUARDED_BY(containerLock);
    // what a reader without the lock must find in the file before he believes it
    SwitchList awaited ZRFS_GUARDED_BY(containerLock);
    // a page was not there yet
    bool metSwitch ZRFS_GUARDED_BY(containerLock) = false;
    // a commit may have marked pages in the map of the file
    bool mapMarked ZRFS_GUARDED_BY(containerLock) = false;
    // page 1 on disk says that a change is under way, or not what it should
    bool changing ZRFS_GUARDED_BY(containerLock) = false;
    uint32_t changes ZRFS_GUARDED_BY(containerLock) = 0;  // counts what transactions did to pages
    bool everLocked ZRFS_GUARDED_BY(containerLock) = false;
    // read-only only because another program would not have writers
    bool writingDenied ZRFS_GUARDED_BY(containerLock) = false;
    // the opening for reading, after one for writing
    platform::PageFile* retiredFile ZRFS_GUARDED_BY(containerLock) = nullptr;
    platform::FileLock* retiredLock ZRFS_GUARDED_BY(containerLock) = nullptr;
    // a directory was loaded whose entries stand in its record
    bool inlineEntries ZRFS_GUARDED_BY(containerLock) = false;
    uint64_t pageReads ZRFS_GUARDED_BY(containerLock) = 0;    // counts transfers
    uint64_t readsBefore ZRFS_GUARDED_BY(containerLock) = 0;  // pageReads when the last read began
    uint32_t reading ZRFS_GUARDED_BY(containerLock) = 0;  // operations at work that must not write
    // one transaction for several operations
    StorageTransaction* batch ZRFS_GUARDED_BY(containerLock) = nullptr;

    platform::RecursiveMutex containerLock;
    bool active ZRFS_GUARDED_BY(containerLock) = false;
    bool readOnly ZRFS_GUARDED_BY(containerLock) = false;
    bool logInFile ZRFS_GUARDED_BY(containerLock) = false;
    bool updateAccessTime ZRFS_GUARDED_BY(containerLock) = false;
    bool byteSwapped ZRFS_GUARDED_BY(containerLock) = false;
    bool caseSensitive ZRFS_GUARDED_BY(containerLock) = false;
    bool compacting ZRFS_GUARDED_BY(containerLock) = false;
    bool searchEnabled ZRFS_GUARDED_BY(containerLock) = true;
    bool wroteSinceLock ZRFS_GUARDED_BY(containerLock) = false;
    bool grewSinceFlush ZRFS_GUARDED_BY(containerLock) = false;
    uint16_t separator ZRFS_GUARDED_BY(containerLock) = '/';
    uint32_t autoCompactPercent ZRFS_GUARDED_BY(containerLock) = 0;
    double lastAccess ZRFS_GUARDED_BY(containerLock) = 0;
    double created ZRFS_GUARDED_BY(containerLock) = 0;

    uint32_t pageSize ZRFS_GUARDED_BY(containerLock) = 0;
    uint32_t payloadSize ZRFS_GUARDED_BY(containerLock) = 0;
    uint32_t pageShift ZRFS_GUARDED_BY(containerLock) = 0;
    // pages covered by the map scan; kUnknownPages before it
    uint32_t knownPages ZRFS_GUARDED_BY(containerLock) = 0;
    uint32_t totalPages ZRFS_GUARDED_BY(containerLock) = 0;  // pages in the file
    uint32_t basePage ZRFS_GUARDED_BY(containerLock) = 0;
    uint8_t* swapBuffer ZRFS_GUARDED_BY(containerLock) = nullptr;
    WChar* path = nullptr;
    WChar* logPath = nullptr;
    // the file was handed in and is not closed here
    bool externalFile ZRFS_GUARDED_BY(containerLock) = false;
    platform::PageFile* file ZRFS_GUARDED_BY(containerLock) = nullptr;
    platform::PageFile* logFile ZRFS_GUARDED_BY(containerLock) = nullptr;
    uint8_t* superblock ZRFS_GUARDED_BY(containerLock) = nullptr;  // page 1, resident while open

    // Page cache.
    HashTable<CachePage, &CachePage::number, &CachePage::hashNext> pageTable
        ZRFS_GUARDED_BY(containerLock);
    // oldest first, map pages apart: the blocks below the cache do not have these
    List<CachePage, &CachePage::lruPrev, &CachePage::lruNext> lru ZRFS_GUARDED_BY(containerLock);
    List<CachePage, &CachePage::lruPrev, &CachePage::lruNext> mapLru ZRFS_GUARDED_BY(containerLock);
    uint32_t mapLruCount ZRFS_GUARDED_BY(containerLock) = 0;
    uint32_t cacheLimit ZRFS_GUARDED_BY(containerLock) = kCacheLimit;
    uint32_t cachedPages ZRFS_GUARDED_BY(containerLock) = 0;  // buffers held
    SpareList<CachePage, &CachePage::hashNext, 128> spareDescriptors ZRFS_GUARDED_BY(containerLock);
    SpareList<SpareBuffer, &SpareBuffer::next, 128> spareBuffers ZRFS_GUARDED_BY(containerLock);

    CleanBlocks blocks ZRFS_GUARDED_BY(containerLock);

    // Page map.
    uint32_t freeCount ZRFS_GUARDED_BY(containerLock) = 0;
    uint32_t firstFree ZRFS_GUARDED_BY(containerLock) = kUnknownPages;
    uint32_t lastFree ZRFS_GUARDED_BY(containerLock) = 0;
    uint32_t mapPagesKnown ZRFS_GUARDED_BY(containerLock) = 0;
    NumberList freeCounts ZRFS_GUARDED_BY(containerLock);  // one a map page
    PointerList<CachePage> dirtyMapPages ZRFS_GUARDED_BY(containerLock);

    SparePages spare ZRFS_GUARDED_BY(containerLock);

    // Transactions.
    List<StorageTransaction, &StorageTransaction::prev, &StorageTransaction::next> transactions
        ZRFS_GUARDED_BY(containerLock);
    SpareList<StorageTransaction, &StorageTransaction::next, 16> spareTransactions
        ZRFS_GUARDED_BY(containerLock);

    // The floors above, reached from below.
    const ObjectHooks* objectHooks ZRFS_GUARDED_BY(containerLock) = nullptr;
    Status (*compact)(StorageContext* context, uint8_t* done) = nullptr;
    // Around a transaction that may write: the file's lock, if nobody has it through this context.
    // Memory is brought up to date when `mayReload`, else the lock is refused if it is not.
    Status (*enterWrite)(StorageContext* context, bool mayReload) = nullptr;
    void (*leaveWrite)(StorageContext* context) = nullptr;
    ObjectState* objects ZRFS_GUARDED_BY(containerLock) = nullptr;

    // The lock is held, and memory is in line with the file since it was taken.
    bool IsLocked() const ZRFS_REQUIRES(containerLock) {
        return lock != nullptr && lock->IsHeld() && lock->Turn() == enteredTurn;
    }
    bool MayChange() const ZRFS_REQUIRES(containerLock) { return !readOnly && reading == 0; }
    Superblock* Super() const ZRFS_REQUIRES(containerLock) {
        return reinterpret_cast<Superblock*>(superblock);
    }
    // Pages from one map page to the next.
    uint32_t MapGroup() const ZRFS_REQUIRES(containerLock) { return pageSize / 2; }
    bool IsMapPage(uint32_t page) const ZRFS_REQUIRES(containerLock) {
        return (page & (MapGroup() - 1)) == 0;
    }
};

// What storage/core/Transaction.h declares could not be said there of a context still unknown.
Status BeginBatch(StorageContext* context) ZRFS_REQUIRES(context->containerLock);
Status EndBatch(StorageContext* context, bool keep) ZRFS_REQUIRES(context->containerLock);
Status BeginChange(StorageContext* context) ZRFS_REQUIRES(context->containerLock);
Status EndChange(StorageContext* context) ZRFS_REQUIRES(context->containerLock);

}  // namespace storage
