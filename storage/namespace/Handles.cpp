// SPDX-License-Identifier: MIT
#include "storage/namespace/Handles.h"

#include "storage/core/PageCache.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Records.h"
#include "storage/namespace/Stream.h"

namespace storage {

namespace {

Status TestSharing(const FileObject* object, bool wantRead, bool wantWrite) {
    if (wantRead && object->denyReadCount > 0) return kSharing;
    if (!wantWrite) return kOk;
    if ((object->entry->attributes & kAttrReadOnly) != 0) return kAccess;
    return object->denyWriteCount > 0 ? kSharing : kOk;
}

// A stream record, once there, stays while the object lives.
Status EnsureStreamRecord(FileObject* object) {
    if ((object->flags & kStreamReady) != 0) return kOk;
    RecordPlace place;
    Status status = FindRecord(object, object->streamType, &place, false, object->transaction);
    const bool missing = place.page == nullptr;
    ReleasePage(object->context, place.page);
    if (status != kOk) return status;
    // A reader makes nothing: to it a stream that is not there is empty.
    if (missing && object->transaction == nullptr)
        return object->context->readOnly ? kReadOnly : kOk;
    if (missing) {
        object->flags |= kStreamChanged;  // a roll back takes the record away
        status = AddRecord(object, object->streamType, nullptr, 0, nullptr, object->transaction);
    }
    if (status == kOk) object->flags |= kStreamReady;
    return status;
}

void TakeFromObject(FileHandle* handle) {
    FileObject* object = handle->object;
    if (handle->deniesRead) --object->denyReadCount;
    if (handle->deniesWrite) --object->denyWriteCount;
    const int64_t place = object->handles.Find(handle);
    if (place >= 0) object->handles.RemoveAt(static_cast<uint32_t>(place));
    handle->object = nullptr;
}

}  // namespace

Status OpenStream(FileObject* object, FileHandle** out, bool wantRead, bool wantWrite,
                  bool denyRead, bool denyWrite) {
    *out = nullptr;
    Status status = TestSharing(object, wantRead, wantWrite);
    if (status != kOk) return status;
    // Not taken back when a later step fails: an object whose stream could not be had stays shut.
    if (denyRead) ++object->denyReadCount;
    if (denyWrite) ++object->denyWriteCount;
    status = EnsureStreamRecord(object);
    if (status == kOk) status = LoadBlockSettings(object, object->transaction);
    if (status != kOk) return status;
    StorageContext* context = object->context;
    FileHandle* handle = AllocateHandle(context);
    if (handle == nullptr) return kNoMemory;
    if (!object->handles.Add(handle)) {
        RecycleHandle(context, handle);
        return kNoMemory;
    }
    handle->object = object;
    handle->context = context;
    handle->canRead = wantRead;
    handle->canWrite = wantWrite;
    handle->deniesRead = denyRead;
    handle->deniesWrite = denyWrite;
    context->objects->handles.PushBack(handle);
    *out = handle;
    return kOk;
}

Status AbandonStream(FileHandle* handle, bool releaseChain, Status error) {
    FileObject* object = handle->object;
    if (object == nullptr) return error;
    const Status released = ReleaseBlock(&handle->block, object->transaction);
    Status status = error == kOk ? released : error;
    TakeFromObject(handle);
    StorageTransaction* own = object->transaction;
    if (object->handles.Empty() && own != nullptr && own->mode == TransactionMode::HeldByFile) {
        // The object outlives both: the handle's references are still on it.
        if (status == kOk)
            status = CommitTransaction(object->context, own);
        else
            RollbackTransaction(object->context, own);
    } else if (status != kOk && own != nullptr) {
        own->failure = status;  // of a batch, or of the other handles on the object
    }
    if (releaseChain) ReleaseObjectChain(object);
    return status;
}

Status CloseStream(FileHandle* handle, bool releaseChain) {
    return AbandonStream(handle, releaseChain, kOk);
}

void FreeHandle(FileHandle* handle) {
    StorageContext* context = handle->context;
    context->objects->handles.Remove(handle);
    RecycleHandle(context, handle);
}

}  // namespace storage
