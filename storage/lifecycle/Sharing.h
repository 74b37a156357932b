// SPDX-License-Identifier: MIT
// Several threads, processes and users on one container: the lock of its file, and reads without
// it.
//
// Page 1 tells what has become of the file: its transactionCounter rises with every change, and it
// names the pages that the change writes, or has `changing` set while one is being written. Who has
// the lock and finds page 1 as it was has the file's state in memory; otherwise memory is thrown
// away and read again. A read without the lock looks at page 1 before and, if it read pages,
// behind: in between nothing may have moved.
#pragma once

#include "storage/core/Context.h"

namespace storage {

inline constexpr uint32_t kLockWait = 60000;  // milliseconds

// What waits for locks uses: milliseconds, and somebody to tell when a wait begins (or null).
struct LockPatience {
    uint32_t milliseconds = kLockWait;
    void (*waiting)() = nullptr;
};

// The bodies of StorageGetLock and StorageReleaseLock; they take containerLock themselves, and not
// while they wait. kInternal when the lock cannot be had, when the calling thread has it through
// another container on the same file, and when the file is not at its path any more.
Status GetContainerLock(StorageContext* context, const LockPatience& patience = {})
    ZRFS_EXCLUDES(context->containerLock);
// kInternal when another thread has the lock, or when it was never taken.
Status ReleaseContainerLock(StorageContext* context);

// Does another thread have the lock through this container?
bool IsLockedByOthers(const StorageContext* context);

// Before an operation: what could not be read, or is not to be trusted, is read again. kNotOpen
// when there is no file.
Status MakeUsable(StorageContext* context) ZRFS_REQUIRES(context->containerLock);

// Brackets a read by an owner of containerLock, lock or no lock; nothing is written in between.
// BeginRead answers kSharing when a change is under way: try again, with the locks left in between.
// EndRead answers kOk when what was read was one state of the file; kSharing: do it again.
Status BeginRead(StorageContext* context) ZRFS_REQUIRES(context->containerLock);
Status EndRead(StorageContext* context, Status result) ZRFS_REQUIRES(context->containerLock);

// By the owner of the lock: the map of the file has nothing as taken that is not used.
void SettleMap(StorageContext* context) ZRFS_REQUIRES(context->containerLock);

// The lock's part of an opened file: made with it, gone with it. kNoMemory, kInternal.
Status AttachLock(StorageContext* context) ZRFS_REQUIRES(context->containerLock);
void DetachLock(StorageContext* context) ZRFS_REQUIRES(context->containerLock);
// Hooks of the context.
Status EnterWrite(StorageContext* context, bool mayReload) ZRFS_REQUIRES(context->containerLock);
void LeaveWrite(StorageContext* context) ZRFS_REQUIRES(context->containerLock);
// Loads an opened file (Open.cpp) as one state of it: beside others' changes, or under the lock.
Status LoadShared(StorageContext* context) ZRFS_REQUIRES(context->containerLock);

}  // namespace storage
