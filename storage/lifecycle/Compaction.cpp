// SPDX-License-Identifier: MIT
#include "storage/lifecycle/Compaction.h"

#include <algorithm>

#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/core/PageMap.h"
#include "storage/core/SparePages.h"
#include "storage/lifecycle/PageReference.h"
#include "storage/namespace/Objects.h"

namespace storage {

namespace {

constexpr uint32_t kBatch = 64;  // pages that one transaction moves at most

// A HeaderPage that was moved, whose object may be in memory.
struct ObjectMove {
    uint32_t fileId;
    uint32_t from;
    uint32_t to;
};

struct CompactionRun {
    StorageContext* context;
    StorageTransaction* transaction = nullptr;
    uint32_t end = 0;     // where the file is to end: nothing behind it stays
    uint32_t top = 0;     // pages from here on have been looked at
    uint32_t target = 0;  // free pages from here on have been taken
    uint32_t moved = 0;   // by the running transaction
    ItemList<ObjectMove> objects;

    explicit CompactionRun(StorageContext* owner) : context(owner) {}
};

// Where the file ends when every free page is given up. A map page goes with the pages behind it,
// but for the last free page, which takes none along.
uint32_t EndWithout(const StorageContext* context, uint32_t freePages) {
    uint32_t end = context->knownPages;
    for (uint32_t free = freePages; free != 0 && end > kRootHeaderNumber; --free) {
        if (context->IsMapPage(end - 1)) --end;
        --end;
    }
    return end;
}

// Looks down from *page for one whose slot is free, or in use, not below `least`; 0 for none.
Status FindDown(StorageContext* context, bool free, uint32_t least, uint32_t* page) {
    const uint32_t group = context->MapGroup();
    uint32_t end = *page;
    *page = 0;
    while (end > least) {
        const uint32_t map = (end - 1) / group * group;
        CachePage* slots = nullptr;
        const Status status = GetPage(context, map, &slots, true, nullptr);
        if (status != kOk) return status;
        for (uint32_t number = end; number-- > map + 1 && number >= least && *page == 0;)
            if (SlotIsFree(LoadU16(slots->buffer, 2 * (number - map))) == free) *page = number;
        ReleasePage(context, slots);
        if (*page != 0) return kOk;
        end = map;
    }
    return kOk;
}

// The object of a moved HeaderPage, if it is in memory, follows the page.
void MoveObject(StorageContext* context, const ObjectMove& move) {
    FileObject* object = context->objects->fileObjects.Find(move.fileId);
    if (object == nullptr || object->headerPage != move.from) return;
    object->headerPage = move.to;
    if (object->entry != nullptr) object->entry->headerPage = move.to;
}

Status FixNeighbours(CompactionRun* run, CachePage* page, uint32_t from) {
    const PageHeader* header = HeaderOf(page->buffer);
    for (const uint32_t neighbour : {header->prevPage, header->nextPage, header->listPage}) {
        if (neighbour == 0) continue;
        const Status status = FixPageReference(run->context, neighbour, from, page->number,
                                               run->transaction, header->kind);
        if (status != kOk) return status;
    }
    return kOk;
}

// The free page `number` as a new page of the transaction, with the content of `source`.
Status TakePage(CompactionRun* run, uint32_t number, const CachePage* source, CachePage** page) {
    StorageContext* context = run->context;
    Status status = GetPageToFill(context, number, page, run->transaction);
    if (status != kOk) return status;
    std::memcpy((*page)->buffer, source->buffer, context->pageSize);
    HeaderOf((*page)->buffer)->pageNumber = number;
    (*page)->mapKind = HeaderOf(source->buffer)->kind;
    status = MarkPageChanged(context, *page);
    (*page)->flags |= kPageNew;
    if (status == kOk) status = SetPageKind(context, number, (*page)->mapKind, false);
    return status;
}

Status MovePage(CompactionRun* run, uint32_t from, uint32_t to) {
    StorageContext* context = run->context;
    CachePage *source = nullptr, *page = nullptr;
    Status status = GetPage(context, from, &source, true, run->transaction);
    if (status != kOk) return status;
    const uint16_t kind = HeaderOf(source->buffer)->kind;
    if (kind == kFreePage) status = kCorrupt;  // the map lied
    if (status == kOk) status = TakePage(run, to, source, &page);
    // What the transaction changed in the old page has gone along.
    if (status == kOk)
        status = FreePage(context, source);
    else
        ReleasePage(context, source);
    if (status == kOk) status = FixNeighbours(run, page, from);
    if (status == kOk) status = FixChildReferences(context, page, from, run->transaction);
    if (status == kOk && kind == kHeaderPage &&
        !run->objects.Add(ObjectMove{HeaderOf(page->buffer)->fileId, from, to}))
        status = kNoMemory;
    ReleasePage(context, page);
    return status;
}

// Moves pages until there are enough of them for one transaction, or no more behind the end.
Status MoveSome(CompactionRun* run, bool* more) {
    StorageContext* context = run->context;
    for (*more = true; run->moved < kBatch; ++run->moved) {
        uint32_t from = run->top;
        Status status = FindDown(context, false, run->end, &from);
        *more = from != 0;
        if (status != kOk || !*more) return status;
        uint32_t to = run->target;
        status = FindDown(context, true, 0, &to);
        if (status == kOk && to == 0) status = kCorrupt;  // the counts lied
        if (status == kOk) status = MovePage(run, from, to);
        if (status != kOk) return status;
        run->top = from;
        run->target = to;
    }
    return kOk;
}

// One transaction. What objects in memory knew of pages is forgotten before it.
Status MoveBatch(CompactionRun* run, bool* more) {
    StorageContext* context = run->context;
    ForgetObjects(context);
    run->objects.Clear();
    run->moved = 0;
    run->transaction = nullptr;
    Status status = BeginTransaction(context, &run->transaction, TransactionMode::Write);
    if (status != kOk) return status;
    // All that a batch changes stays in memory until it is committed.
    const uint32_t limit = context->cacheLimit;
    context->cacheLimit = kUnknownPages;
    status = MoveSome(run, more);
    if (status == kOk)
        status = CommitTransaction(context, run->transaction);
    else
        RollbackTransaction(context, run->transaction);
    context->cacheLimit = limit;
    if (status == kOk)
        for (const ObjectMove& move : run->objects) MoveObject(context, move);
    EvictPages(context);
    return status;
}

// What is behind `end` is gone.
Status CutTail(StorageContext* context, uint32_t end) {
    Status status = kOk;
    context->pageTable.ForEach([&](CachePage* page) {
        if (page->number >= end && page->pinCount == 0) DiscardPage(context, page);
    });
    if (!context->logInFile) {
        status = CutFile(context->file, uint64_t{context->basePage} + end, context->pageSize);
        context->blocks.Forget();
        if (status == kOk) context->totalPages = end;
        context->wroteSinceLock = true;
    }
    const uint32_t group = context->MapGroup();
    context->knownPages = end;
    context->mapPagesKnown = (end + group - 1) / group;
    context->freeCounts.Truncate(context->mapPagesKnown);
    for (uint32_t& count : context->freeCounts) count = 0;
    context->freeCount = context->lastFree = 0;
    context->firstFree = kUnknownPages;
    return status;
}

Status MoveAll(CompactionRun* run, void* userData, CompactProgress progress) {
    StorageContext* context = run->context;
    for (bool more = true; more;) {
        if (progress != nullptr && !progress(userData)) return kCancelled;
        const Status status = MoveBatch(run, &more);
        if (status != kOk) return status;
        if (context->stale) return kInternal;  // the file is to be read again
    }
    // A commit may have needed pages of its own for a while; they are free again.
    uint32_t last = context->knownPages;
    Status status = FindDown(context, false, run->end, &last);
    if (status != kOk || last != 0) return status;
    if (run->end < context->knownPages) status = CutTail(context, run->end);
    return status;
}

Status RunOnce(StorageContext* context, void* userData, CompactProgress progress) {
    CompactionRun run(context);
    run.end = run.target = EndWithout(context, context->freeCount);
    run.top = context->knownPages;
    return MoveAll(&run, userData, progress);
}

// What a check tells of the container in the file.
struct LostPages {
    WChar name[64] = {};
    NumberList lost = {};
    NumberList wrong = {};
    bool damaged = false;

    static void Told(void* data, uint32_t code, uint32_t page, uint32_t, uint8_t, uint8_t* cancel) {
        LostPages* self = static_cast<LostPages*>(data);
        if (code == kFoundLostPage && !self->lost.Add(page)) *cancel = 1;
        if (code == kFoundBadLink && !self->wrong.Add(page)) *cancel = 1;
        if (code == kFoundBadEntry) self->damaged = true;
    }
    // Pages are told of in rising order; what is wrong about lost ones is no damage.
    bool AreAll() {
        for (const uint32_t page : wrong)
            if (!std::binary_search(lost.begin(), lost.end(), page)) return false;
        return !damaged && !lost.Empty();
    }
};

// Pages that somebody who was killed left in use, and nothing refers to, cannot move. Where there
// is nothing else wrong with the container they are freed. kCorrupt otherwise.
Status FreeLostPages(StorageContext* context) {
    LostPages found;
    Status status =
        StorageCheckAndRepair(context->path, nullptr, kCheckOnly | kCheckDeep | kCheckLocked,
                              nullptr, nullptr, &found, &LostPages::Told);
    if (status != kOk) return status == kCancelled ? Status{kNoMemory} : status;
    if (!found.AreAll()) return kCorrupt;
    StorageTransaction* transaction = nullptr;
    status = BeginTransaction(context, &transaction, TransactionMode::Write);
    if (status != kOk) return status;
    for (const uint32_t page : found.lost) {
        CachePage* cached = context->pageTable.Find(page);
        if (cached != nullptr && cached->pinCount == 0) DiscardPage(context, cached);
        if (status == kOk && !transaction->releasePages.Add(page)) status = kNoMemory;
    }
    if (status == kOk) return CommitTransaction(context, transaction);
    transaction->releasePages.Clear();
    RollbackTransaction(context, transaction);
    return status;
}

}  // namespace

Status CompactPages(StorageContext* context, uint8_t* done, void* userData,
                    CompactProgress progress) {
    if (!context->active) return kNotOpen;
    if (done != nullptr) *done = 0;
    if (context->readOnly) return kReadOnly;
    if (!context->transactions.Empty()) return kOk;
    if (done != nullptr) *done = 255;
    // No commit of a batch compacts.
    context->compacting = true;
    GiveBackSparePages(context);
    Status status = RunOnce(context, userData, progress);
    if (status == kCorrupt) {
        status = FreeLostPages(context);
        if (status == kOk) status = RunOnce(context, userData, progress);
        if (status == kCorrupt) status = Corrupt(context);
    }
    context->compacting = false;
    return status;
}

Status CompactPages(StorageContext* context, uint8_t* done) {
    return CompactPages(context, done, nullptr, nullptr);
}

}  // namespace storage
