// Open streams: handles on objects.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

// A handle on the object's stream; a missing stream record is added. The reference on the chain
// is the caller's to keep for the handle. kSharing, kAccess, kNoMemory.
Status OpenStream(FileObject* object, FileHandle** handle, bool wantRead, bool wantWrite,
                  bool denyRead, bool denyWrite);
// Stores the handle's block and, with the object's last handle, ends the object's transaction.
// The handle stays allocated, without an object.
Status CloseStream(FileHandle* handle, bool releaseChain);
// The same after an error, which becomes the result: the transaction is rolled back.
Status AbandonStream(FileHandle* handle, bool releaseChain, Status error);
// Takes a closed handle off the context's list and frees it.
void FreeHandle(FileHandle* handle);

}  // namespace storage
