// The lock under which a run on a whole container works: a check, a repair, a compaction.
#pragma once

#include "storage/core/Context.h"

namespace storage {

enum class RunLock {
    Shared,     // nobody writes meanwhile
    Exclusive,  // nobody else uses the container meanwhile
};
inline constexpr uint32_t kRunLockWait = 5000;  // milliseconds

// Locks an open container file until it is closed. kSharing when somebody has it for longer than
// kRunLockWait.
Status LockFileForRun(platform::PageFile* file, const WChar* path, RunLock how);
// The same for an open container, until ReleaseContainerLock.
Status LockContainerForRun(StorageContext* context);

}  // namespace storage
