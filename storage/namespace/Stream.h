// SPDX-License-Identifier: MIT
// The byte stream of an object: inline in its record, or a chain of pages, in blocks.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

Status ReadSize(FileObject* object, uint64_t* size, StorageTransaction* transaction);
// Brings object->streamEnd up to date.
Status ComputeStreamEnd(FileObject* object, StorageTransaction* transaction);

// The block that holds `position`, with a reference, in place of the one in *block. kEndOfData
// past the stream end unless `mayExtend`.
Status GetBlock(FileObject* object, uint64_t position, FileBlock** block, bool mayExtend,
                StorageTransaction* transaction);
// Gives up a reference; the last one stores a dirty block. *block becomes null.
Status ReleaseBlock(FileBlock** block, StorageTransaction* transaction);
Status StoreBlock(FileBlock* block, StorageTransaction* transaction);

Status SetStreamEnd(FileObject* object, uint64_t end, FileBlock** block,
                    StorageTransaction* transaction);
Status SetFileSize(FileObject* object, uint64_t size, StorageTransaction* transaction);
Status FreeStream(FileObject* object, bool* freed, StorageTransaction* transaction);

// Forgets what memory knows of the stream, dirty blocks included (their handles lose them); for
// roll back and destruction.
void DropStreamState(FileObject* object);

// Block settings from the object's record, or the defaults.
Status LoadBlockSettings(FileObject* object, StorageTransaction* transaction);

// At a handle. They note the time in the context.
Status ReadStream(FileHandle* handle, void* buffer, uint32_t count, uint32_t* done)
    ZRFS_REQUIRES(handle->context->containerLock);
Status WriteStream(FileHandle* handle, const void* buffer, uint32_t count, uint32_t* done)
    ZRFS_REQUIRES(handle->context->containerLock);

// Block methods 3 and 4. The two functions of method 3 are set by nobody; without them such
// blocks do not decode.
using CodeFunction = int (*)(const uint8_t* source, uint32_t sourceLength, uint8_t* destination,
                             uint32_t* destinationLength, uint32_t level);
using DecodeFunction = int (*)(const uint8_t* source, uint32_t sourceLength, uint8_t* destination,
                               uint32_t* destinationLength);
extern CodeFunction StorageCompressFunction;
extern DecodeFunction StorageExpandFunction;
// The run-length code. False when the output does not fit, or (decoding) the code is broken.
bool EncodeRuns(const uint8_t* source, uint32_t sourceLength, uint8_t* destination,
                uint32_t* destinationLength);
bool DecodeRuns(const uint8_t* source, uint32_t sourceLength, uint8_t* destination,
                uint32_t* destinationLength);

}  // namespace storage
