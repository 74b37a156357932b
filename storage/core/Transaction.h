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
    NumberList releasePages;  // freed in the map at the end, in either outcome
    Status failure = 0;       // a change that could not be finished: commit rolls back instead
    StorageTransaction* prev = nullptr;
    StorageTransaction* next = nullptr;
};

// How a transaction reaches the objects that joined it, without knowing what they are. Installed
// in the context by the layer that owns the objects.
struct ObjectHooks {
    // The transaction committed. The object may be gone afterwards.
    void (*committed)(StorageContext* context, StorageTransaction* transaction, FileObject* object);
    // The transaction is rolled back; its pages are dropped already. The object may be gone
    // afterwards.
    void (*rolledBack)(StorageContext* context, StorageTransaction* transaction,
                       FileObject* object);
};

// kNotOpen when the container is not open, kNoMemory.
Status BeginTransaction(StorageContext* context, StorageTransaction** transaction,
                        TransactionMode mode);
// Writes what changed, then the page map, and ends the transaction. When a page cannot be
// written the transaction is rolled back; when the map cannot be, the changes stand and the
// record stays on the context's list until close. The transaction must not be used afterwards.
Status CommitTransaction(StorageContext* context, StorageTransaction* transaction);
// Throws away what changed and ends the transaction.
void RollbackTransaction(StorageContext* context, StorageTransaction* transaction);
// Ends a transaction that changed nothing.
void EndReadTransaction(StorageContext* context, StorageTransaction* transaction);

// Adds a page to the transaction's list. kSharing when another transaction has it.
Status JoinPage(StorageTransaction* transaction, CachePage* page);
void LeavePage(StorageTransaction* transaction, CachePage* page);

// Frees every transaction record, running or pooled; for the end of a context.
void DestroyTransactions(StorageContext* context);

// Compacts when the free share passes autoCompactPercent; runs at the end of each commit.
// See ContextHooks in Context.h.
Status CheckAutoCompact(StorageContext* context);

}  // namespace storage
