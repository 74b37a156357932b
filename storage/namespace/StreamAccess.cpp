// SPDX-License-Identifier: MIT
// Reading and writing at a handle.
#include <algorithm>

#include "storage/core/Dates.h"
#include "storage/namespace/Blocks.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Stream.h"
#include "storage/namespace/StreamInfo.h"

namespace storage {
namespace {

Status NoteAccess(FileObject* object) {
    StorageContext* context = object->context;
    context->lastAccess = CurrentDate();
    if (!context->updateAccessTime || !context->MayChange() || object->transaction == nullptr)
        return kOk;
    PinnedRecord info(context);
    Status status = FindFileInfo(object, &info, object->transaction);
    if (status == kOk) status = MarkPageTouched(context, info.page);
    if (status == kOk) Store(info.Bytes(), record::kAccessed, context->lastAccess);
    return status;
}

// Copies from the handle's block; bytes of the block that are not stored are zeros.
uint32_t CopyFromBlock(FileHandle* handle, uint8_t* to, uint32_t count) {
    const FileBlock* block = handle->block;
    const uint32_t offset = static_cast<uint32_t>(handle->position - block->start);
    count = std::min(count, block->capacity - offset);
    const uint32_t stored = block->dataLength > offset ? block->dataLength - offset : 0;
    const uint32_t copied = std::min(count, stored);
    std::memcpy(to, block->data + offset, copied);
    std::memset(to + copied, 0, count - copied);
    return count;
}

uint32_t CopyToBlock(FileHandle* handle, const uint8_t* from, uint32_t count) {
    FileBlock* block = handle->block;
    const uint32_t offset = static_cast<uint32_t>(handle->position - block->start);
    count = std::min(count, block->capacity - offset);
    if (offset > block->dataLength)
        std::memset(block->data + block->dataLength, 0, offset - block->dataLength);
    if (count != 0) std::memcpy(block->data + offset, from, count);
    const FileObject* object = handle->object;
    const uint64_t position = handle->position + count;
    const bool beyond = position > object->streamEnd || position > object->size;
    // Past the end of the stream the block ends with what is written.
    block->dataLength = beyond ? offset + count : std::max(block->dataLength, offset + count);
    block->flags |= kBlockDirty;
    return count;
}

// Copies all of it, from block to block.
Status CopyToStream(FileHandle* handle, const uint8_t* from, uint32_t count, uint32_t* done) {
    FileObject* object = handle->object;
    do {
        const Status status =
            GetBlock(object, handle->position, &handle->block, true, object->transaction);
        if (status != kOk) return status;
        const uint32_t copied = CopyToBlock(handle, from + *done, count - *done);
        handle->position += copied;
        *done += copied;
    } while (*done < count);
    return kOk;
}

}  // namespace

Status ReadStream(FileHandle* handle, void* buffer, uint32_t count, uint32_t* done) {
    *done = 0;
    FileObject* object = handle->object;
    if (object == nullptr) return kNoObject;
    if (!handle->canRead) return kAccess;
    Status status = NoteAccess(object);
    uint64_t size = 0;
    if (status == kOk) status = ReadSize(object, &size, object->transaction);
    if (status != kOk) return status;
    if (handle->position >= size) return kEndOfData;
    uint8_t* to = static_cast<uint8_t*>(buffer);
    count = static_cast<uint32_t>(std::min<uint64_t>(count, size - handle->position));
    while (*done < count) {
        status = GetBlock(object, handle->position, &handle->block, false, object->transaction);
        if (status != kOk && status != kEndOfData) return status;
        uint32_t copied = count - *done;
        if (status == kOk)
            copied = CopyFromBlock(handle, to + *done, copied);
        else
            std::memset(to + *done, 0, copied);  // the size may lie past what is stored
        handle->position += copied;
        *done += copied;
    }
    return kOk;
}

namespace {

Status WriteAt(FileHandle* handle, const void* buffer, uint32_t count, uint32_t* done) {
    FileObject* object = handle->object;
    Status status = ComputeStreamEnd(object, object->transaction);
    if (status == kOk)
        status = CopyToStream(handle, static_cast<const uint8_t*>(buffer), count, done);
    if (status != kOk) return status;
    const uint64_t position = handle->position;
    if (position > object->streamEnd || position > object->size) {
        status = StoreBlock(handle->block, object->transaction);
        if (status != kOk) return status;
        object->streamEnd = std::max(object->streamEnd, position);
    }
    return WriteSize(object, std::max(object->size, position), true, object->transaction);
}

}  // namespace

Status WriteStream(FileHandle* handle, const void* buffer, uint32_t count, uint32_t* done) {
    *done = 0;
    FileObject* object = handle->object;
    if (object == nullptr) return kNoObject;
    if (!handle->canWrite) return kAccess;
    if (!object->context->MayChange()) return kReadOnly;
    Status status = EnsureOwnTransaction(object);
    if (status != kOk) return status;
    const uint32_t before = object->context->changes;
    status = WriteAt(handle, buffer, count, done);
    // What was written in part is not to become final with the close of the file.
    if (status != kOk && *done + (object->context->changes - before) != 0 &&
        object->transaction != nullptr)
        object->transaction->failure = status;
    return status;
}

}  // namespace storage
