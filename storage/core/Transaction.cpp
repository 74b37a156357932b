// SPDX-License-Identifier: MIT
#include "storage/core/Transaction.h"

#include <new>
#include <utility>

#include "storage/core/Context.h"
#include "storage/core/OneCall.h"
#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/core/PageMap.h"
#include "storage/core/RedoLog.h"
#include "storage/core/SparePages.h"
#include "storage/core/SwitchMark.h"

namespace storage {

namespace {

StorageTransaction* TakeRecord(StorageContext* context) {
    StorageTransaction* transaction = context->spareTransactions.Take();
    if (transaction != nullptr) return transaction;
    void* memory = platform::HeapAllocate(sizeof(StorageTransaction));
    return memory == nullptr ? nullptr : new (memory) StorageTransaction();
}

void DestroyRecord(StorageTransaction* transaction) {
    transaction->~StorageTransaction();
    platform::HeapRelease(transaction);
}

// Takes the record off the list of running ones and keeps it for reuse.
void EndRecord(StorageContext* context, StorageTransaction* transaction) {
    context->transactions.Remove(transaction);
    const bool writes = transaction->writes;
    transaction->objects.Clear();
    transaction->releasePages.Clear();
    if (!context->spareTransactions.Keep(transaction)) DestroyRecord(transaction);
    if (writes) context->leaveWrite(context);
}

// Somebody may have looked at one of them since it was freed.
void DropListedPages(StorageContext* context, StorageTransaction* transaction) {
    for (const uint32_t number : transaction->releasePages) {
        CachePage* page = context->pageTable.Find(number);
        if (page != nullptr && page->pinCount == 0) DiscardPage(context, page);
    }
}

// The map has it already as what it is.
bool IsMarked(const CachePage* page) {
    return (page->flags & (kPageSpare | kPageFreed)) == kPageSpare;
}

// Gets all that the map needs before the first page is written, so that what is freed at the end
// needs neither memory nor the file.
Status PrepareMap(StorageContext* context, StorageTransaction* transaction) {
    const uint32_t groupMask = ~(context->MapGroup() - 1);
    uint32_t prepared = 0, last = kUnknownPages;
    const auto prepare = [&](uint32_t number) {
        if ((number & groupMask) == last) return Status{kOk};
        last = number & groupMask;
        return PreparePageKind(context, number, ++prepared);
    };
    Status status = kOk;
    for (CachePage* page = transaction->pages.head; page != nullptr && status == kOk;
         page = page->txNext)
        if ((page->flags & (kPageNew | kPageFreed)) != 0 && !IsMarked(page))
            status = prepare(page->number);
    for (uint32_t i = 0; i < transaction->releasePages.Count() && status == kOk; ++i)
        status = prepare(transaction->releasePages[i]);
    return status;
}

// Enters the pages in the map that have all of `wanted` among `mask`.
Status EnterInMap(StorageContext* context, StorageTransaction* transaction, uint16_t mask,
                  uint16_t wanted) {
    for (CachePage* page = transaction->pages.head; page != nullptr; page = page->txNext) {
        if ((page->flags & mask) != wanted) continue;
        if (IsMarked(page)) continue;
        const Status status = SetPageKind(context, page->number, page->mapKind, false);
        if (status != kOk) return status;
    }
    return kOk;
}

bool ChangesFile(const StorageContext* context, const StorageTransaction* transaction) {
    if (!transaction->releasePages.Empty() || !context->dirtyMapPages.Empty()) return true;
    for (const CachePage* page = transaction->pages.head; page != nullptr; page = page->txNext)
        if ((page->flags & kPageChanged) != 0) return true;
    return false;
}

Status MarkNew(StorageContext* context, StorageTransaction* transaction) {
    Status status = EnterInMap(context, transaction, kPageNew, kPageNew);
    if (status != kOk) return status;
    MarkRunsAhead(context, transaction);
    status = FlushMapPages(context);
    EndRunsAhead(context, status == kOk);
    return status;
}

// What is new: nothing refers to it yet.
Status WriteNew(StorageContext* context, StorageTransaction* transaction) {
    return WriteTransactionPages(context, transaction, kPageNew | kPageFreed | kPageInCall,
                                 kPageNew);
}

constexpr uint16_t kSwitchMask = kPageNew | kPageFreed | kPageVital;

// The pages that were there before and are written in their places.
struct SwitchCount {
    uint32_t vital = 0;
    uint32_t all = 0;
    SwitchList list;  // the first of them
};

SwitchCount CountSwitched(StorageContext* context, const StorageTransaction* transaction) {
    SwitchCount count;
    for (const CachePage* page = transaction->pages.head; page != nullptr; page = page->txNext) {
        const bool isNew = (page->flags & kPageNew) != 0;
        if ((page->flags & (kPageFreed | kPageDirty)) != kPageDirty || page->buffer == nullptr ||
            (isNew && (page->flags & kPageInCall) == 0))
            continue;
        if (!isNew && (page->flags & kPageVital) != 0) ++count.vital;
        if (++count.all > kMostSwitched || !HasSwitchList(context)) continue;
        count.list.pages[count.list.count++] = {page->number,
                                                DigestPage(page->buffer, context->pageSize)};
    }
    return count;
}

// Page 1 tells of the pages before they are written; they say themselves when they are there. What
// goes wrong is put right by EndChange.
Status WriteListed(StorageContext* context, StorageTransaction* transaction, const SwitchList& list,
                   const OneCall& call, bool* final) {
    Superblock* super = context->Super();
    if (super->transactionCounter == context->seenCounter) ++super->transactionCounter;
    const bool hadChange = std::exchange(context->changing, true);
    super->changing = 0;
    PutSwitchList(context, list);
    Status status = WritePage(context, context->superblock, kSuperblockNumber);
    if (status != kOk)
        super->changing = hadChange ? 1 : 0;
    else if (call.count != 0)
        status = WriteOneCall(context, call);
    else
        status = WriteTransactionPages(context, transaction, kSwitchMask, kPageVital);
    *final = status == kOk;
    if (status == kOk) status = WriteTransactionPages(context, transaction, kSwitchMask, 0);
    if (status != kOk) return *final ? Status{kOk} : status;
    context->changing = false;
    context->seenCounter = super->transactionCounter;
    return kOk;
}

// Page 1 tells that a change is under way, and at its end that it is done.
Status WriteOne(StorageContext* context, StorageTransaction* transaction, bool* final) {
    Status status = BeginChange(context);
    if (status == kOk)
        status = WriteTransactionPages(context, transaction, kSwitchMask, kPageVital);
    *final = status == kOk;
    if (status == kOk) WriteTransactionPages(context, transaction, kSwitchMask, 0);
    return status;
}

Status WriteLogged(StorageContext* context, StorageTransaction* transaction, uint32_t count,
                   bool* final) {
    RedoLog log(context);
    Status status = log.Write(transaction, count);
    if (status == kOk) status = log.SwitchOn();
    if (status != kOk) return status;
    *final = true;
    status = WriteTransactionPages(context, transaction, kSwitchMask, kPageVital);
    if (status != kOk) {
        log.Leave();
        return status;
    }
    log.SwitchOff();
    WriteTransactionPages(context, transaction, kSwitchMask, 0);
    return kOk;
}

// What refers to the new. *final tells that the change stands whatever the status.
Status WriteSwitch(StorageContext* context, StorageTransaction* transaction, const OneCall& call,
                   bool* final) {
    const SwitchCount count = CountSwitched(context, transaction);
    if (count.vital > 1) return WriteLogged(context, transaction, count.vital, final);
    if (HasSwitchList(context) && count.all <= kMostSwitched)
        return WriteListed(context, transaction, count.list, call, final);
    return WriteOne(context, transaction, final);
}

// What was given up. That it cannot be freed now loses room and no more.
void WriteFreed(StorageContext* context, StorageTransaction* transaction) {
    DropListedPages(context, transaction);
    if (KeepFreedPages(context, transaction)) {
        FlushMapPages(context);
        return;
    }
    Status status = EnterInMap(context, transaction, kPageFreed, kPageFreed);
    if (status == kOk) status = FreeInMap(context, transaction->releasePages);
    transaction->releasePages.Clear();
    if (status == kOk) status = GiveBackSparePages(context);
    if (status == kOk) FlushMapPages(context);
}

// The pages leave the transaction as they are.
void LetPagesGo(StorageContext* context, StorageTransaction* transaction) {
    while (CachePage* page = transaction->pages.head) {
        LeavePage(transaction, page);
        page->flags &= static_cast<uint16_t>(
            ~(kPageNew | kPageFreed | kPageVital | kPageChanged | kPageSpare | kPageInCall));
        if (page->buffer != nullptr && !context->IsMapPage(page->number))
            HeaderOf(page->buffer)->pendingKind = 0;
        ReleasePage(context, page, false);
    }
}

// The end of a change that did not come about. What cannot be written stays for the next commit.
void AbandonChange(StorageContext* context) {
    if (FlushMapPages(context) == kOk) EndChange(context);
}

Status WriteChanges(StorageContext* context, StorageTransaction* transaction) {
    Status status = context->readOnly || context->IsLocked() ? kOk : Status{kSharing};
    if (status == kOk) status = PrepareMap(context, transaction);
    if (status != kOk) {
        RollbackTransaction(context, transaction);
        return status;
    }
    bool final = false;
    context->mapMarked = true;
    status = MarkNew(context, transaction);
    OneCall call;
    if (status == kOk) PlanOneCall(context, transaction, &call);
    if (status == kOk) status = WriteNew(context, transaction);
    if (status == kOk) {
        status = WriteSwitch(context, transaction, call, &final);
        // What could not be written whole is read again before it is believed.
        context->stale = context->stale || status != kOk;
    }
    if (!final) {
        RollbackTransaction(context, transaction);
        AbandonChange(context);
        context->mapMarked = false;
        return status;
    }
    context->mapMarked = false;
    ++context->spare.changes;
    // With the log in force the rest comes with the next opening of the file, or reading it again.
    if (status != kOk) return kOk;
    WriteFreed(context, transaction);
    EndChange(context);  // tried again at the next change, and when the lock is released
    return kOk;
}

}  // namespace

// Also where the last change could not be ended: page 1 is to have what this one brings.
Status BeginChange(StorageContext* context) {
    Superblock* super = context->Super();
    if (super->transactionCounter == context->seenCounter) ++super->transactionCounter;
    super->changing = 1;
    context->changing = true;
    return WriteSuperblock(context);
}

Status EndChange(StorageContext* context) {
    if (!context->changing) return kOk;
    Superblock* super = context->Super();
    super->changing = 0;
    // Who read the file in the middle of the change must not take what he has for its end.
    ++super->transactionCounter;
    const Status status = WriteSuperblock(context);
    if (status == kOk) {
        context->changing = false;
        context->seenCounter = super->transactionCounter;
    } else {
        super->changing = 1;
    }
    return status;
}

Status BeginTransaction(StorageContext* context, StorageTransaction** out, TransactionMode mode) {
    *out = nullptr;
    if (!context->active) return kNotOpen;
    if (mode != TransactionMode::HeldByFile && context->batch != nullptr) {
        *out = context->batch;
        if (mode == TransactionMode::Write && context->batch->nested++ == 0)
            context->batch->changesBefore = context->changes;
        return kOk;
    }
    const bool writes = mode != TransactionMode::Read && !context->readOnly;
    if (writes) {
        const Status status = context->enterWrite(context, mode == TransactionMode::Write);
        if (status != kOk) return status;
    }
    StorageTransaction* transaction = TakeRecord(context);
    if (transaction == nullptr) {
        if (writes) context->leaveWrite(context);
        return kNoMemory;
    }
    transaction->context = context;
    transaction->mode = mode;
    transaction->failure = kOk;
    transaction->batch = false;
    transaction->nested = 0;
    transaction->writes = writes;
    transaction->id = ++context->Super()->transactionCounter;
    context->transactions.PushBack(transaction);
    *out = transaction;
    return kOk;
}

Status CommitTransaction(StorageContext* context, StorageTransaction* transaction) {
    if (transaction->nested > 0) {
        --transaction->nested;
        return transaction->failure;
    }
    if (transaction->failure != kOk) {
        const Status failure = transaction->failure;
        RollbackTransaction(context, transaction);
        return failure;
    }
    if (ChangesFile(context, transaction)) {
        const Status status = WriteChanges(context, transaction);
        if (status != kOk) return status;
    }
    transaction->releasePages.Clear();
    LetPagesGo(context, transaction);
    for (uint32_t i = transaction->objects.Count(); i-- > 0;)
        context->objectHooks->committed(context, transaction, transaction->objects[i]);
    transaction->objects.Clear();
    EndRecord(context, transaction);
    return CheckAutoCompact(context);
}

void RollbackTransaction(StorageContext* context, StorageTransaction* transaction) {
    if (transaction->nested > 0) {
        --transaction->nested;
        if (context->changes != transaction->changesBefore && transaction->failure == kOk)
            transaction->failure = kInternal;
        return;
    }
    while (CachePage* page = transaction->pages.head) {
        LeavePage(transaction, page);
        const uint32_t number = page->number;
        const bool made = (page->flags & kPageNew) != 0;
        const bool spare = made && (page->flags & (kPageSpare | kPageFreed)) == kPageSpare;
        const uint16_t kind = page->mapKind;
        DiscardPage(context, page);
        if (spare)
            ReturnSparePage(context, kind, number);
        else if (made)
            SetPageKind(context, number, kFreePage, false);
    }
    transaction->releasePages.Clear();
    if (!context->changing && !context->mapMarked && context->writers <= 1)
        ForgetMapChanges(context);
    context->objectHooks->rolledBack(context, transaction);
    EndRecord(context, transaction);
}

Status BeginBatch(StorageContext* context) {
    if (context->batch != nullptr) return kInternal;
    StorageTransaction* batch = nullptr;
    const Status status = BeginTransaction(context, &batch, TransactionMode::Write);
    if (batch != nullptr) batch->batch = true;
    context->batch = batch;
    return status;
}

Status EndBatch(StorageContext* context, bool keep) {
    StorageTransaction* batch = context->batch;
    context->batch = nullptr;
    if (batch == nullptr) return kNotOpen;
    if (keep) return CommitTransaction(context, batch);
    const Status failure = batch->failure;
    RollbackTransaction(context, batch);
    return failure;
}

void EndReadTransaction(StorageContext* context, StorageTransaction* transaction) {
    if (transaction == context->batch) return;
    LetPagesGo(context, transaction);
    EndRecord(context, transaction);
}

Status JoinPage(StorageTransaction* transaction, CachePage* page) {
    if (page->transaction == transaction) return kOk;
    if (page->transaction != nullptr) return kSharing;
    page->transaction = transaction;
    page->flags |= kPageInTransaction;
    transaction->pages.PushFront(page);
    ++transaction->pageCount;
    return kOk;
}

void LeavePage(StorageTransaction* transaction, CachePage* page) {
    transaction->pages.Remove(page);
    --transaction->pageCount;
    page->transaction = nullptr;
    page->flags &= static_cast<uint16_t>(~kPageInTransaction);
}

Status FreePageNumber(StorageTransaction* transaction, uint32_t number) {
    StorageContext* context = transaction->context;
    CachePage* page = context->pageTable.Find(number);
    if (page != nullptr && (page->pinCount != 0 || (page->flags & kPageInTransaction) != 0)) {
        const Status status = GetPage(context, number, &page, false, transaction);
        if (status != kOk) return status;
        if ((page->flags & kPageFreed) == 0) return FreePage(context, page);
        ReleasePage(context, page);
        return Corrupt(context);
    }
    if (!context->MayChange()) return kReadOnly;
    if (transaction->releasePages.Count() >= context->totalPages) return Corrupt(context);
    if (!transaction->releasePages.Add(number)) return kNoMemory;
    ++context->changes;
    if (page != nullptr) DiscardPage(context, page);
    return kOk;
}

void DestroyTransactions(StorageContext* context) {
    while (StorageTransaction* transaction = context->transactions.head) {
        context->transactions.Remove(transaction);
        DestroyRecord(transaction);
    }
    while (StorageTransaction* transaction = context->spareTransactions.Take())
        DestroyRecord(transaction);
}

Status CheckAutoCompact(StorageContext* context) {
    if (context->autoCompactPercent == 0 || context->readOnly || context->compacting ||
        context->logInFile || !context->transactions.Empty() || context->compact == nullptr ||
        context->stale)
        return kOk;
    if (context->knownPages == kUnknownPages) {
        const Status status = ScanPageMap(context, true, 0);
        if (status != kOk) return status;
    }
    // In 32 bits, wrapping for very large containers; meant so.
    if ((context->freeCount + context->spare.Count()) * 100 <=
        context->knownPages * context->autoCompactPercent)
        return kOk;
    return context->compact(context, nullptr);
}

}  // namespace storage
