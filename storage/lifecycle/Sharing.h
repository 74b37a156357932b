// Several processes on one container: a named mutex and a generation that counts their writes.
#pragma once

#include "storage/core/Context.h"

namespace storage {

// The bodies of StorageGetLock and StorageReleaseLock; they take containerLock themselves, and not
// while they wait.
Status GetContainerLock(StorageContext* context);
Status ReleaseContainerLock(StorageContext* context);
// For the end of a context: makes known what was written under a lock still held, gives the lock
// up and closes the shared objects.
void CloseSharedObjects(StorageContext* context);

}  // namespace storage
