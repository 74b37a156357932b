// SPDX-License-Identifier: MIT
// The lock under which a run on a whole container works: a check, a repair, a compaction.
#pragma once

#include "storage/core/Context.h"

namespace storage {

inline constexpr uint32_t kRunLockWait = 5000;  // milliseconds

// The lock of a container file for a run that has no open container, held until the object goes.
// Who may not write the file does not keep others from it either: such a run is given the lock and
// finds out for itself whether the file moved.
class RunLock {
  public:
    RunLock() = default;
    ~RunLock();
    RunLock(const RunLock&) = delete;
    RunLock& operator=(const RunLock&) = delete;

    // kSharing when somebody has it for longer than kRunLockWait. A run that only reads is let in
    // under a lock that the calling thread has through another opening.
    Status Take(const WChar* path, bool onlyReads);

    // Is somebody at work on the file whom this lock does not keep off?
    bool IsBesideWriter() const;

  private:
    StorageContext* context_ = nullptr;
};

// The same for an open container, until ReleaseContainerLock.
Status LockContainerForRun(StorageContext* context);

}  // namespace storage
