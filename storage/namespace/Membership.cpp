// SPDX-License-Identifier: MIT
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

void AddReferences(FileObject* object, int32_t count) {
    for (; object != nullptr; object = object->parent) object->references += count;
}

bool HasLeft(const FileObject* object) {
    constexpr uint32_t kLeft = kObjectDeleted | kObjectNameChanged;
    return (object->flags & kLeft) != 0 || object->parent != object->saved.parent;
}

// From where a move put it. In a batch those who hold the object came along when the move ended;
// any other move has them come when it knows how it ended.
void LeaveNewParent(FileObject* object, bool batch) {
    FileObject* parent = object->parent;
    if (parent == nullptr || parent == object->saved.parent) return;
    RemoveEntry(parent, object->entry);
    RemoveOrphan(object);
    object->entry->flags &= ~kEntryDetached;
    if (batch) AddReferences(parent, -object->references);
    object->parent = nullptr;
}

// The record goes back to the directory where it was, as far as memory is concerned; that
// directory is in the same transaction and will be loaded again.
void ReturnToParent(FileObject* object, bool batch) {
    FileObject* parent = object->saved.parent;
    if (parent == nullptr || !HasLeft(object)) return;
    if (object->parent == nullptr && batch) AddReferences(parent, object->references);
    object->parent = parent;
    if ((object->entry->flags & kEntryDetached) != 0) return;
    RemoveEntry(parent, object->entry);
    AddOrphan(parent, object);
}

void Restore(FileObject* object, bool stream) {
    object->depth = object->saved.depth;
    object->headerPage = object->saved.headerPage;
    object->entry->headerPage = object->saved.headerPage;
    object->entry->entry = object->saved.entry;
    object->entry->attributes = object->saved.attributes;
    if ((object->flags & kDirectoryChanged) != 0) DropEntries(object);
    if (!stream && (object->flags & kStreamChanged) == 0) return;
    DropStreamState(object);
    object->flags &= ~kStreamReady;
}

void EndMembership(FileObject* object) {
    object->transaction = nullptr;
    if ((object->flags & kObjectCreated) == 0) {
        object->flags &= ~kCommitClears;
        SettleObject(object);
        return;
    }
    if (object->parent != nullptr) RemoveEntry(object->parent, object->entry);
    object->entry->flags |= kEntryDetached;
    DestroyObject(object);
}

// A batch may have read what it wrote, through objects that are not in it.
void ForgetStreams(StorageContext* context) {
    context->objects->fileObjects.ForEach([](FileObject* object) {
        if (object->handles.Empty() && object->transaction == nullptr) DropStreamState(object);
    });
}

// All are back in their places before the first one goes, for what goes takes along what is below
// it: and while they are in the transaction nothing does that is above them.
void RolledBack(StorageContext* context, StorageTransaction* transaction) {
    PointerList<FileObject>& objects = transaction->objects;
    if (!objects.Empty()) ForgetPaths(context);
    const auto each = [&objects](auto&& act) {
        for (uint32_t i = objects.Count(); i-- > 0;)
            if ((objects[i]->flags & kObjectCreated) == 0) act(objects[i]);
    };
    const bool batch = transaction->batch;
    each([batch](FileObject* object) { LeaveNewParent(object, batch); });
    each([batch](FileObject* object) { ReturnToParent(object, batch); });
    const bool stream = transaction->mode == TransactionMode::HeldByFile;
    each([stream](FileObject* object) { Restore(object, stream); });
    while (!objects.Empty()) {
        FileObject* last = objects.Last();
        objects.Truncate(objects.Count() - 1);
        EndMembership(last);
    }
    if (batch) ForgetStreams(context);
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

bool HasMembers(const StorageContext* context) {
    for (const StorageTransaction* on = context->transactions.head; on != nullptr; on = on->next)
        if (!on->objects.Empty()) return true;
    return false;
}

void DropEntries(FileObject* directory) {
    const bool mayDestroy = !HasMembers(directory->context);
    for (uint32_t i = directory->children.Count(); i-- > 0;) {
        DirEntry* entry = directory->children[i];
        if (entry->object == nullptr) {
            DestroyDirEntry(entry);
            continue;
        }
        AddOrphan(directory, entry->object);
        if (mayDestroy && entry->object->references == 0) DestroyObject(entry->object);
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
