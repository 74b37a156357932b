// SPDX-License-Identifier: MIT
// Transactions: what an operation touched, made final or thrown away as a whole.
#pragma once

#include <cstdint>

#include "storage/core/CachePage.h"
#include "storage/core/ItemList.h"
#include "storage/core/List.h"
#include "storage/core/Status.h"

namespace storage {

struct FileObject;
struct StorageContext;

enum class TransactionMode : uint32_t { Write = 0, Read = 1, HeldByFile = 2 };

struct StorageTransaction {
    StorageContext* context = nullptr;
    uint32_t id = 0;
    TransactionMode mode = TransactionMode::Write;
    PointerList<FileObject> objects;  // those that joined, in order of joining
    uint32_t pageCount = 0;
    List<CachePage, &CachePage::txPrev, &CachePage::txNext> pages;  // newest first
    NumberList releasePages;     // freed in the map at the end of the commit
    Status failure = 0;          // a change that could not be finished: commit rolls back instead
    bool writes = false;         // keeps the file's lock for its time, see BeginTransaction
    bool batch = false;          // see BeginBatch
    uint32_t nested = 0;         // operations at work in a batch
    uint32_t changesBefore = 0;  // context->changes when the first of them began
    StorageTransaction* prev = nullptr;
    StorageTransaction* next = nullptr;
};

// How a transaction reaches the objects that joined it, without knowing what they are. Installed
// in the context by the layer that owns the objects.
struct ObjectHooks {
    // The transaction committed. The object may be gone afterwards.
    void (*committed)(StorageContext* context, StorageTransaction* transaction, FileObject* object);
    // The transaction is rolled back; its pages are dropped already. Gives back what its objects
    // were and empties the list of them. Some may be gone afterwards.
    void (*rolledBack)(StorageContext* context, StorageTransaction* transaction);
};

// kNotOpen when the container is not open, kNoMemory. A transaction that may write takes the
// file's lock if nobody holds it through this context, and lets it go with its end: kSharing when
// it cannot be had. In a batch an operation gets the batch's transaction.
Status BeginTransaction(StorageContext* context, StorageTransaction** transaction,
                        TransactionMode mode);
// Makes the changes final and ends the transaction, which must not be used afterwards. The file is
// whole after each write on the way: pages that are new are marked in the map and written first, or
// in one call with what refers to them (storage/core/OneCall.h);
// then what refers to them is switched, by one page write or, where several pages changed, by the
// redo log; what was given up is freed last. When it fails everything is as it was before. What
// goes wrong behind the switch is no failure: pages that could not be freed are lost, and a log
// that could not be carried out stays in force and is replayed when the file is read again. An
// operation in a batch only hands its changes on to it.
Status CommitTransaction(StorageContext* context, StorageTransaction* transaction);
// Throws away what changed and ends the transaction: nothing of it stays in memory to be written
// later. An operation that changed something in a batch takes the batch with it.
void RollbackTransaction(StorageContext* context, StorageTransaction* transaction);
// Ends a transaction that changed nothing.
void EndReadTransaction(StorageContext* context, StorageTransaction* transaction);

// One transaction for the operations up to EndBatch, so that all of them become final together.
// Files opened in it must be closed in it. One batch at a time.
Status BeginBatch(StorageContext* context);
// Commits, or with `keep` false or after a failure in it rolls back. The failure, if any.
Status EndBatch(StorageContext* context, bool keep);

// Around the writes of a change that page 1 has no list for: it says that one is under way, and
// then that there is a new state. EndChange also puts right what a failed writing of page 1 left.
// The caller holds the file's lock.
Status BeginChange(StorageContext* context);
Status EndChange(StorageContext* context);

// Adds a page to the transaction's list. kSharing when another transaction has it.
Status JoinPage(StorageTransaction* transaction, CachePage* page);
void LeavePage(StorageTransaction* transaction, CachePage* page);
// Frees a page that nobody has pinned, without reading it. kCorrupt when more pages are freed than
// there are: one is freed again and again.
Status FreePageNumber(StorageTransaction* transaction, uint32_t number);

// Frees every transaction record, running or pooled; for the end of a context.
void DestroyTransactions(StorageContext* context);

// Compacts when the free share passes autoCompactPercent; runs at the end of each commit.
Status CheckAutoCompact(StorageContext* context);

}  // namespace storage
