#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/Handles.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Operations.h"
#include "storage/namespace/ParentOperation.h"
#include "storage/namespace/Purge.h"
#include "storage/namespace/Records.h"
#include "storage/namespace/Stream.h"

namespace storage {

namespace {

void Keep(Status* first, Status status) {
    if (*first == kOk) *first = status;
}

// Frees what the records of one HeaderPage link to.
Status FreeLinkedPages(StorageContext* context, CachePage* page, StorageTransaction* transaction) {
    Status status = kOk;
    Status walked = kOk;
    uint32_t offset = 0;
    while (NextRecord(context, page, &offset, &walked)) {
        const RecordPlace place{page, offset};
        if (place.Link() == 0) continue;
        const uint16_t type = LoadU16(place.Bytes(), record::kType);
        Keep(&status,
             FreePageChain(context, place.Link(), static_cast<uint16_t>(type + kRecordKindBase),
                           HeaderOf(page->buffer)->fileId, transaction));
    }
    Keep(&status, walked);
    return status;
}

Status FreeHeaderChain(FileObject* object, StorageTransaction* transaction) {
    StorageContext* context = object->context;
    Status status = kOk;
    uint32_t left = context->totalPages;
    for (uint32_t number = object->headerPage; number != 0;) {
        if (left-- == 0) return Corrupt(context);
        CachePage* page = nullptr;
        const Status got = GetPageChecked(context, number, kHeaderPage, &page, true, false,
                                          object->fileId, transaction);
        if (got != kOk) return status != kOk ? status : got;
        Keep(&status, FreeLinkedPages(context, page, transaction));
        number = HeaderOf(page->buffer)->nextPage;
        Keep(&status, FreePage(context, page));
    }
    return status;
}

// The pages of an object and its entry.
Status FreeObjectPages(FileObject* object, StorageTransaction* transaction) {
    StorageContext* context = object->context;
    FileObject* directory = object->parent;
    object->flags |= kStreamChanged;
    bool freed = false;
    Status status = FreeStream(object, &freed, transaction);
    DirectoryEntry bytes;
    const Status read = ReadDirEntry(directory, object->entry, &bytes, nullptr, transaction);
    if (read != kOk) return status != kOk ? status : read;
    if (bytes.fileId == 0) return status;
    Keep(&status, FreeHeaderChain(object, transaction));
    if (bytes.namePage != 0)
        Keep(&status,
             FreePageChain(context, bytes.namePage, kNamePage, object->fileId, transaction));
    Keep(&status, WriteDirEntry(directory, DirectoryEntry{}, object->entry->entry, transaction));
    return status;
}

// First half of a purge: what stands in the way of it.
Status BeginPurge(FileObject* object, StorageTransaction* transaction) {
    Status status = object->references > 1 ? kSharing : kOk;
    while (!object->handles.Empty()) Keep(&status, CloseStream(object->handles.Last(), true));
    Keep(&status, LoadDirectory(object, transaction));
    object->purgeNext = object->children.Count();
    return status;
}

// Second half, when nothing is below the object any more.
Status FinishPurge(FileObject* object, StorageTransaction* transaction) {
    const Status status = FreeObjectPages(object, transaction);
    ForgetPath(object);
    object->parent->flags |= kDirectoryChanged;
    RemoveEntry(object->parent, object->entry);
    object->flags |= kObjectDeleted;
    object->parent = nullptr;
    return status;
}

// The next child, from the end of the list, in the transaction and with a reference; null when
// none is left. Children that cannot be had are passed over.
FileObject* TakePurgeChild(FileObject* object, Status* status, StorageTransaction* transaction) {
    while (object->purgeNext > 0) {
        DirEntry* entry = object->children[--object->purgeNext];
        FileObject* child = nullptr;
        Status got = OpenEntry(object, entry, &child);
        if (got == kOk) {
            got = JoinTransaction(transaction, child);
            if (got == kOk) return child;
            --child->references;
            SettleObject(child);
        }
        Keep(status, got);
    }
    return nullptr;
}

}  // namespace

// Depth first without recursion: what lies below a file that was used as a directory can be as
// deep as its maker liked.
Status PurgeObject(FileObject* top, StorageTransaction* transaction) {
    Status status = BeginPurge(top, transaction);
    for (FileObject* object = top;;) {
        if (FileObject* child = TakePurgeChild(object, &status, transaction)) {
            Keep(&status, BeginPurge(child, transaction));
            object = child;
            continue;
        }
        FileObject* parent = object->parent;
        Keep(&status, FinishPurge(object, transaction));
        if (object == top) return status;
        --object->references;
        object = parent;
    }
}

namespace {

Status DeleteChild(ParentOperation* operation) {
    FileObject* directory = operation->parent.object;
    StorageTransaction* transaction = operation->transaction;
    FileObject* child = nullptr;
    Status status =
        OpenChild(directory, operation->parent.lastName, &child, kNotFound, transaction);
    if (status != kOk) return status;
    if ((child->entry->attributes & kAttrDirectory) != 0) {
        status = LoadDirectory(child, transaction);
        if (status == kOk && !child->children.Empty()) status = kNotEmpty;
    }
    if (status == kOk && child->references > 1) status = kSharing;
    if (status == kOk) status = JoinTransaction(transaction, child);
    if (status == kOk) status = PurgeObject(child, transaction);
    --child->references;
    SettleObject(child);
    return status;
}

}  // namespace

Status DeleteAt(StorageContext* context, const WChar* path) {
    if (!context->active) return kNotOpen;
    if (context->readOnly) return kReadOnly;
    ParentOperation operation(context);
    Status status = operation.Begin(path, false);
    if (status == kOk) status = DeleteChild(&operation);
    return operation.End(status);
}

}  // namespace storage
