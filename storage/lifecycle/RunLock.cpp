#include "storage/lifecycle/RunLock.h"

#include "storage/lifecycle/Sharing.h"

namespace storage {

// The file's own lock is not there yet: every run is let through.
Status LockFileForRun(platform::PageFile*, const WChar*, RunLock) {
    return kOk;
}

Status LockContainerForRun(StorageContext* context) {
    const Status status = GetContainerLock(context);
    return status == kInternal ? kSharing : status;
}

}  // namespace storage
