#include "storage/namespace/Membership.h"

#include "storage/namespace/Directory.h"
#include "storage/namespace/EntryRecords.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Stream.h"

namespace storage {

namespace {

void Committed(StorageContext*, StorageTransaction*, FileObject* object) {
    object->transaction = nullptr;
    if ((object->flags & kObjectDeleted) != 0) {
        object->entry->flags |= kEntryDetached;  // its record goes with it
        DestroyObject(object);
        return;
    }
    object->flags &= ~kCommitClears;
    SettleObject(object);
}

void DestroyCreated(FileObject* object) {
    if (object->parent != nullptr) RemoveEntry(object->parent, object->entry);
    object->entry->flags |= kEntryDetached;
    DestroyObject(object);
}

// The record goes back to the directory where it was, as far as memory is concerned; that
// directory is in the same transaction and will be loaded again.
void ReturnToParent(FileObject* object) {
    if (object->saved.parent == nullptr || (object->entry->flags & kEntryDetached) != 0) return;
    if (object->parent != nullptr) RemoveEntry(object->parent, object->entry);
    object->parent = object->saved.parent;
    AddOrphan(object->parent, object);
}

void RolledBack(StorageContext* context, StorageTransaction* transaction, FileObject* object) {
    ForgetPaths(context);
    object->transaction = nullptr;
    if ((object->flags & kObjectCreated) != 0) {
        DestroyCreated(object);
        return;
    }
    const bool moved = (object->flags & (kObjectDeleted | kObjectNameChanged)) != 0 ||
                       object->parent != object->saved.parent;
    if (moved) ReturnToParent(object);
    object->depth = object->saved.depth;
    object->headerPage = object->saved.headerPage;
    object->entry->headerPage = object->saved.headerPage;
    object->entry->entry = object->saved.entry;
    object->entry->attributes = object->saved.attributes;
    if ((object->flags & kDirectoryChanged) != 0) DropEntries(object);
    if (transaction->mode == TransactionMode::HeldByFile || (object->flags & kStreamChanged) != 0) {
        DropStreamState(object);
        object->flags &= ~kStreamReady;
    }
    object->flags &= ~kCommitClears;
    SettleObject(object);
}

constexpr ObjectHooks kHooks = {Committed, RolledBack};

}  // namespace

const ObjectHooks* TransactionHooks() {
    return &kHooks;
}

void AddOrphan(FileObject* directory, FileObject* child) {
    child->entry->flags &= ~kEntryListed;
    child->entry->flags |= kEntryDetached;
    directory->orphans.PushBack(child);
}

void RemoveOrphan(FileObject* child) {
    FileObject* directory = child->parent;
    if (directory == nullptr) return;
    if (directory->orphans.head != child && child->orphanPrev == nullptr) return;
    directory->orphans.Remove(child);
}

void DropEntries(FileObject* directory) {
    for (uint32_t i = directory->children.Count(); i-- > 0;) {
        DirEntry* entry = directory->children[i];
        if (entry->object == nullptr) {
            DestroyDirEntry(entry);
            continue;
        }
        AddOrphan(directory, entry->object);
        if (entry->object->references == 0 && entry->object->transaction == nullptr)
            DestroyObject(entry->object);
    }
    directory->children.Reset();
    LeaveSlabs(&directory->records);
    directory->directoryPages.Clear();
    directory->freeEntries.Clear();
    directory->flags &= ~(kEntriesLoaded | kNamesSorted);
}

Status JoinTransaction(StorageTransaction* transaction, FileObject* object) {
    if (object->transaction == transaction) return kOk;
    if (object->transaction != nullptr) return kSharing;
    if (!transaction->objects.Add(object)) return kNoMemory;
    object->transaction = transaction;
    LeaveIdle(object);
    if ((object->flags & kObjectCreated) == 0)
        object->saved = {object->parent, object->depth,        object->headerPage,
                         object->flags,  object->entry->entry, object->entry->attributes};
    return kOk;
}

Status EnsureOwnTransaction(FileObject* object) {
    if (object->transaction != nullptr || object->context->reading != 0) return kOk;
    if (StorageTransaction* batch = object->context->batch) {
        const Status status = JoinTransaction(batch, object);
        if (status == kOk) object->flags |= kStreamChanged;
        return status;
    }
    StorageTransaction* transaction = nullptr;
    Status status = BeginTransaction(object->context, &transaction, TransactionMode::HeldByFile);
    if (status != kOk) return status;
    status = JoinTransaction(transaction, object);
    if (status != kOk) RollbackTransaction(object->context, transaction);
    return status;
}

}  // namespace storage
