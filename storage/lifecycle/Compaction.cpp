#include "storage/lifecycle/Compaction.h"

#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/core/PageMap.h"
#include "storage/lifecycle/PageReference.h"
#include "storage/namespace/Objects.h"

namespace storage {

namespace {

struct PageMove {
    uint32_t from;
    uint32_t to;
    uint16_t kind;
};

// One run. Nothing of it reaches the file before every move is made in memory: the cache takes
// all it needs, and the pages that will be overwritten are kept as they were.
struct CompactionRun {
    StorageContext* context;
    StorageTransaction* transaction = nullptr;
    uint32_t top;     // pages from here on are given up
    uint32_t cursor;  // free pages from here on are taken
    ItemList<PageMove> moves;
    SavedPages saved;

    explicit CompactionRun(StorageContext* owner)
        : context(owner), top(owner->knownPages), cursor(owner->knownPages), saved(owner) {}
};

// The highest free page below `limit`, 0 when there is none.
Status FindFreeBelow(CompactionRun* run, uint32_t limit, uint32_t* found) {
    StorageContext* context = run->context;
    const uint32_t group = context->MapGroup();
    uint32_t end = limit < run->cursor ? limit : run->cursor;
    *found = 0;
    while (end > 0) {
        const uint32_t map = (end - 1) / group * group;
        if (context->freeCounts[map / group] != 0) {
            CachePage* page = nullptr;
            const Status status = GetPage(context, map, &page, true, nullptr);
            if (status != kOk) return status;
            for (uint32_t number = end; number-- > map + 1 && *found == 0;)
                if (SlotIsFree(LoadU16(page->buffer, 2 * (number - map)))) *found = number;
            ReleasePage(context, page);
            if (*found != 0) break;
        }
        end = map;
    }
    run->cursor = *found;
    return kOk;
}

// The object of a moved HeaderPage, if it is in memory, follows the page.
void MoveObject(StorageContext* context, uint32_t fileId, uint32_t from, uint32_t to) {
    FileObject* object = context->objects->fileObjects.Find(fileId);
    if (object == nullptr || object->headerPage != from) return;
    object->headerPage = to;
    if (object->entry != nullptr) object->entry->headerPage = to;
}

Status FixNeighbours(CompactionRun* run, CachePage* page, uint32_t from) {
    const PageHeader* header = HeaderOf(page->buffer);
    for (const uint32_t neighbour : {header->prevPage, header->nextPage, header->listPage}) {
        if (neighbour == 0) continue;
        const Status status = FixPageReference(run->context, neighbour, from, page->number,
                                               run->transaction, header->kind, &run->saved);
        if (status != kOk) return status;
    }
    return kOk;
}

Status MovePage(CompactionRun* run, uint32_t from, uint32_t to) {
    StorageContext* context = run->context;
    CachePage* page = nullptr;
    Status status = GetPage(context, from, &page, true, run->transaction);
    if (status != kOk) return status;
    const uint16_t kind = HeaderOf(page->buffer)->kind;
    if (kind == kFreePage) {
        status = Corrupt(context);  // the map lied
    } else if (!run->moves.Add(PageMove{from, to, kind})) {
        status = kNoMemory;
    }
    if (status == kOk) status = RenumberPage(context, page, to);
    if (status == kOk) status = FixNeighbours(run, page, from);
    if (status == kOk)
        status = FixChildReferences(context, page, from, run->transaction, &run->saved);
    if (status == kOk && kind == kHeaderPage)
        MoveObject(context, HeaderOf(page->buffer)->fileId, from, to);
    ReleasePage(context, page);
    return status;
}

Status MoveAll(CompactionRun* run) {
    StorageContext* context = run->context;
    for (uint32_t free = context->freeCount; free != 0; --free) {
        // A map page never moves; once no page is behind it, it is given up.
        if (run->top > 0 && context->IsMapPage(run->top - 1)) --run->top;
        uint32_t target = 0;
        const Status status = FindFreeBelow(run, run->top, &target);
        if (status != kOk) return status;
        if (target == 0) return Corrupt(context);  // the counts lied
        --run->top;
        if (target == run->top) continue;
        const Status moved = MovePage(run, run->top, target);
        if (moved != kOk) return moved;
    }
    return kOk;
}

Status EnterMoves(CompactionRun* run, uint32_t* entered) {
    for (*entered = 0; *entered < run->moves.Count(); ++*entered) {
        const PageMove& move = run->moves[*entered];
        Status status = SetPageKind(run->context, move.to, move.kind, false);
        if (status == kOk) {
            status = SetPageKind(run->context, move.from, kFreePage, false);
            if (status != kOk) SetPageKind(run->context, move.to, kFreePage, false);
        }
        if (status != kOk) return status;
    }
    return kOk;
}

void TakeMovesBack(CompactionRun* run, uint32_t entered) {
    while (entered-- > 0) {
        const PageMove& move = run->moves[entered];
        SetPageKind(run->context, move.from, move.kind, false);
        SetPageKind(run->context, move.to, kFreePage, false);
    }
    if (FlushMapPages(run->context) != kOk) return;  // stay dirty for the next commit
}

// Everything in memory and in the file back to what it was.
void Undo(CompactionRun* run, uint32_t entered) {
    TakeMovesBack(run, entered);
    run->saved.WriteBack();
    for (uint32_t i = run->moves.Count(); i-- > 0;) {
        const PageMove& move = run->moves[i];
        if (move.kind != kHeaderPage) continue;
        run->context->objects->fileObjects.ForEach([&](FileObject* object) {
            if (object->headerPage == move.to)
                MoveObject(run->context, object->fileId, move.to, move.from);
        });
    }
    RollbackTransaction(run->context, run->transaction);
}

Status MoveAndWrite(CompactionRun* run) {
    StorageContext* context = run->context;
    Status status = BeginTransaction(context, &run->transaction, TransactionMode::Write);
    if (status != kOk) return status;
    uint32_t entered = 0;
    status = MoveAll(run);
    if (status == kOk) status = WriteTransactionPages(context, run->transaction, 0, 0);
    if (status == kOk) status = EnterMoves(run, &entered);
    if (status == kOk) status = FlushMapPages(context);
    if (status != kOk) {
        Undo(run, entered);
        return status;
    }
    return CommitTransaction(context, run->transaction);
}

// What is behind `top` is gone.
Status CutTail(StorageContext* context, uint32_t top) {
    Status status = kOk;
    context->pageTable.ForEach([&](CachePage* page) {
        if (page->number >= top && page->pinCount == 0) DiscardPage(context, page);
    });
    if (!context->logInFile) {
        status = CutFile(context->file, uint64_t{context->basePage} + top, context->pageSize);
        if (status == kOk) context->totalPages = top;
        context->wroteSinceLock = true;
    }
    const uint32_t group = context->MapGroup();
    context->knownPages = top;
    context->mapPagesKnown = (top + group - 1) / group;
    context->freeCounts.Truncate(context->mapPagesKnown);
    for (uint32_t& count : context->freeCounts) count = 0;
    context->freeCount = context->lastFree = 0;
    context->firstFree = kUnknownPages;
    return status;
}

}  // namespace

Status CompactPages(StorageContext* context, uint8_t* done) {
    if (!context->active) return kNotOpen;
    if (done != nullptr) *done = 0;
    if (context->readOnly) return kReadOnly;
    if (!context->transactions.Empty()) return kOk;
    if (done != nullptr) *done = 255;
    ForgetObjects(context);
    context->compacting = true;
    const uint32_t limit = context->cacheLimit;
    context->cacheLimit = kUnknownPages;
    CompactionRun run(context);
    Status status = MoveAndWrite(&run);
    if (status == kOk && run.top < context->knownPages) status = CutTail(context, run.top);
    context->compacting = false;
    context->cacheLimit = limit;
    EvictPages(context);
    return status;
}

}  // namespace storage
