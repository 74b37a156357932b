// SPDX-License-Identifier: MIT
// Making and opening files and directories.
#include "storage/namespace/AddEntry.h"
#include "storage/namespace/Handles.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Operations.h"
#include "storage/namespace/ParentOperation.h"
#include "storage/namespace/Records.h"
#include "storage/namespace/Stream.h"

namespace storage {

namespace {

// What an open does besides opening.
struct OpenExtras {
    bool truncate;
    bool isNew;  // there is nothing to truncate
};

Status TruncateStream(FileHandle* handle, bool isNew) {
    FileObject* object = handle->object;
    if (!handle->canWrite) return kAccess;
    return isNew ? kOk : SetFileSize(object, handle->position, object->transaction);
}

// A handle on a referenced object; its references are the caller's to keep or give back.
Status OpenObject(FileObject* object, const FileAccess& access, const OpenExtras& extras,
                  FileHandle** file) {
    const bool began = object->transaction == nullptr && access.wantWrite;
    Status status = began ? EnsureOwnTransaction(object) : kOk;
    if (status != kOk) return status;
    FileHandle* handle = nullptr;
    status = OpenStream(object, &handle, access.wantRead, access.wantWrite, access.denyRead,
                        access.denyWrite);
    if (status != kOk) {
        StorageTransaction* own = began ? object->transaction : nullptr;
        if (own != nullptr && own->mode == TransactionMode::HeldByFile)
            RollbackTransaction(object->context, own);
        return status;
    }
    if (extras.truncate) status = TruncateStream(handle, extras.isNew);
    if (status != kOk) {
        AbandonStream(handle, false, status);
        FreeHandle(handle);
        return status;
    }
    *file = handle;
    return kOk;
}

// The child gets its stream record right away, in the transaction that makes it.
Status MakeFile(ParentOperation* operation, bool openIfExists, FileObject** object, bool* created) {
    const NewEntry wanted{operation->parent.lastName, kAttrFile, openIfExists, true};
    Status status =
        AddDirEntry(operation->parent.object, wanted, object, created, operation->transaction);
    if (status != kOk) return status;
    if (*created)
        return AddRecord(*object, (*object)->streamType, nullptr, 0, nullptr,
                         operation->transaction);
    return ((*object)->entry->attributes & kAttrFile) != 0 ? kOk : kExists;
}

}  // namespace

Status CreateDirectoryAt(StorageContext* context, const WChar* path) {
    ParentOperation operation(context);
    Status status = operation.Begin(path, true);
    FileObject* object = nullptr;
    bool created = false;
    if (status == kOk) {
        const NewEntry wanted{operation.parent.lastName, kAttrDirectory, false, true};
        status =
            AddDirEntry(operation.parent.object, wanted, &object, &created, operation.transaction);
    }
    if (status == kOk) --object->references;  // settles with the transaction
    return operation.End(status);
}

Status CreateFileAt(StorageContext* context, const WChar* path, const FileAccess& access,
                    bool openIfExists, bool truncate, FileHandle** file) {
    *file = nullptr;
    ParentOperation operation(context);
    Status status = operation.Begin(path, true);
    FileObject* object = nullptr;
    bool created = false;
    if (status == kOk) status = MakeFile(&operation, openIfExists, &object, &created);
    const uint32_t id = object != nullptr ? object->fileId : 0;
    status = operation.EndTransaction(status);
    // A roll back takes an object away that it made.
    if (id != 0 && status != kOk) object = context->objects->fileObjects.Find(id);
    if (status == kOk) status = OpenObject(object, access, {truncate, created}, file);
    if (status != kOk && object != nullptr) {
        --object->references;
        SettleObject(object);
    }
    // The handle keeps the references on the directory and above.
    if (status == kOk) operation.parent.object = nullptr;
    operation.End(status);
    return status;
}

Status OpenFileAt(StorageContext* context, const WChar* path, const FileAccess& access,
                  FileHandle** file) {
    *file = nullptr;
    if (!context->active) return kNotOpen;
    StorageTransaction* transaction = nullptr;
    Status status = BeginTransaction(context, &transaction, TransactionMode::Read);
    if (status != kOk) return status;
    ResolvedPath resolved;
    status = ResolvePath(context, path, false, false, true, &resolved, transaction);
    EndReadTransaction(context, transaction);
    if (status == kOk) {
        status = OpenObject(resolved.object, access, {}, file);
        if (status != kOk) ReleaseObjectChain(resolved.object);
    }
    return status;
}

}  // namespace storage
