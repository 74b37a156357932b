// SPDX-License-Identifier: MIT
// Open streams: handles on objects.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

// A handle on the object's stream; a missing stream record is added. The reference on the chain
// is the caller's to keep for the handle. kSharing, kAccess, kNoMemory.
Status OpenStream(FileObject* object, FileHandle** handle, bool wantRead, bool wantWrite,
                  bool denyRead, bool denyWrite) ZRFS_REQUIRES(object->context->containerLock);
// Stores the handle's block and, with the object's last handle, ends the object's transaction.
// The handle stays allocated, without an object.
Status CloseStream(FileHandle* handle, bool releaseChain)
    ZRFS_REQUIRES(handle->context->containerLock);
// The same after an error, which becomes the result: the transaction is rolled back.
Status AbandonStream(FileHandle* handle, bool releaseChain, Status error)
    ZRFS_REQUIRES(handle->context->containerLock);
// Takes a closed handle off the context's list and frees it.
void FreeHandle(FileHandle* handle) ZRFS_REQUIRES(handle->context->containerLock);

}  // namespace storage
