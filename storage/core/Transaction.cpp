#include "storage/core/Transaction.h"

#include <new>

#include "storage/core/Context.h"
#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/core/PageMap.h"

namespace storage {

namespace {

StorageTransaction* TakeRecord(StorageContext* context) {
    StorageTransaction* transaction = context->spareTransactions;
    if (transaction != nullptr) {
        context->spareTransactions = transaction->next;
        return transaction;
    }
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
#ifdef ZRFS_NO_POOLS
    DestroyRecord(transaction);
#else
    transaction->objects.Clear();
    transaction->releasePages.Clear();
    transaction->next = context->spareTransactions;
    context->spareTransactions = transaction;
#endif
}

Status ReleaseListedPages(StorageContext* context, StorageTransaction* transaction) {
    Status status = kOk;
    for (uint32_t i = 0; i < transaction->releasePages.Count() && status == kOk; ++i)
        status = SetPageKind(context, transaction->releasePages[i], kFreePage, false);
    transaction->releasePages.Clear();
    return status;
}

// Gets all that the map needs before the first page is written: what fails from there on leaves
// pages on the disk that the map does not know of.
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
        if ((page->flags & (kPageNew | kPageFreed)) != 0) status = prepare(page->number);
    for (uint32_t i = 0; i < transaction->releasePages.Count() && status == kOk; ++i)
        status = prepare(transaction->releasePages[i]);
    return status;
}

// Brings the map in line with the pages made and freed.
Status EnterPagesInMap(StorageContext* context, StorageTransaction* transaction) {
    for (CachePage* page = transaction->pages.head; page != nullptr; page = page->txNext) {
        if ((page->flags & (kPageNew | kPageFreed)) == 0) continue;
        const Status status = SetPageKind(context, page->number, page->mapKind, false);
        if (status != kOk) return status;
    }
    return kOk;
}

// The pages leave the transaction as they are.
void LetPagesGo(StorageContext* context, StorageTransaction* transaction) {
    while (CachePage* page = transaction->pages.head) {
        LeavePage(transaction, page);
        page->flags &=
            static_cast<uint16_t>(~(kPageNew | kPageFreed | kPageRemoved | kPageChanged));
        if (page->buffer != nullptr && !context->IsMapPage(page->number))
            HeaderOf(page->buffer)->pendingKind = 0;
        ReleasePage(context, page, false);
    }
}

}  // namespace

Status BeginTransaction(StorageContext* context, StorageTransaction** out, TransactionMode mode) {
    *out = nullptr;
    if (!context->active) return kNotOpen;
    StorageTransaction* transaction = TakeRecord(context);
    if (transaction == nullptr) return kNoMemory;
    transaction->context = context;
    transaction->mode = mode;
    transaction->failure = kOk;
    transaction->id = ++context->Super()->transactionCounter;
    context->transactions.PushBack(transaction);
    *out = transaction;
    return kOk;
}

Status CommitTransaction(StorageContext* context, StorageTransaction* transaction) {
    Status status = transaction->failure;
    if (status == kOk) status = PrepareMap(context, transaction);
    if (status == kOk) status = WriteTransactionPages(context, transaction);
    if (status != kOk) {
        RollbackTransaction(context, transaction);
        return status;
    }
    status = EnterPagesInMap(context, transaction);
    if (status == kOk) status = ReleaseListedPages(context, transaction);
    transaction->releasePages.Clear();
    if (status == kOk) status = FlushMapPages(context);
    LetPagesGo(context, transaction);
    for (uint32_t i = transaction->objects.Count(); i-- > 0;)
        context->objectHooks->committed(context, transaction, transaction->objects[i]);
    transaction->objects.Clear();
    if (status != kOk) return status;  // the record stays, and keeps compaction away
    EndRecord(context, transaction);
    return CheckAutoCompact(context);
}

void RollbackTransaction(StorageContext* context, StorageTransaction* transaction) {
    // First of all none of them may be written any more, not even to make room in the cache.
    for (CachePage* page = transaction->pages.head; page != nullptr; page = page->txNext)
        page->flags &= static_cast<uint16_t>(~kPageDirty);
    Status status = kOk;
    while (CachePage* page = transaction->pages.head) {
        LeavePage(transaction, page);
        const uint32_t number = page->number;
        const bool made = (page->flags & kPageNew) != 0;
        uint8_t* buffer = page->buffer;
        if (made && status == kOk) status = SetPageKind(context, number, kFreePage, false);
        if (made && status == kOk && buffer != nullptr) {
            std::memset(buffer, 0, context->pageSize);
            HeaderOf(buffer)->pageNumber = number;
            status = WritePage(context, buffer, number);
        }
        DiscardPage(context, page);
    }
    if (status == kOk) ReleaseListedPages(context, transaction);
    transaction->releasePages.Clear();
    for (uint32_t i = transaction->objects.Count(); i-- > 0;)
        context->objectHooks->rolledBack(context, transaction, transaction->objects[i]);
    EndRecord(context, transaction);
}

void EndReadTransaction(StorageContext* context, StorageTransaction* transaction) {
    ReleaseListedPages(context, transaction);
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

void DestroyTransactions(StorageContext* context) {
    while (StorageTransaction* transaction = context->transactions.head) {
        context->transactions.Remove(transaction);
        DestroyRecord(transaction);
    }
    while (StorageTransaction* transaction = context->spareTransactions) {
        context->spareTransactions = transaction->next;
        DestroyRecord(transaction);
    }
}

Status CheckAutoCompact(StorageContext* context) {
    if (context->autoCompactPercent == 0 || context->readOnly || context->compacting ||
        context->logInFile || !context->transactions.Empty() || context->compact == nullptr)
        return kOk;
    if (context->knownPages == kUnknownPages) {
        const Status status = ScanPageMap(context, true, 0);
        if (status != kOk) return status;
    }
    // In 32 bits, wrapping for very large containers; meant so.
    if (context->freeCount * 100 <= context->knownPages * context->autoCompactPercent) return kOk;
    return context->compact(context, nullptr);
}

}  // namespace storage
