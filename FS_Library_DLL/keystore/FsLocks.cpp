// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsLocks.h"

#include "FS_Library_DLL/LockWait.h"
#include "FS_Library_DLL/keystore/FsOperation.h"
#include "FS_Library_DLL/keystore/FsTrace.h"

namespace {

// Types 2 and 3 change places between the interface and the engine.
uint32_t SwapLockType(uint32_t type, uint32_t unknown) {
    switch (type) {
        case 1:
            return 1;
        case 2:
            return 3;
        case 3:
            return 2;
        default:
            return unknown;
    }
}

// A node that finds no memory is missing; the lock is held all the same.
void PushLock(uint32_t type, FsStoreContext* context) {
    const platform::MutexGuard guard(context->stackLock);
    context->currentLock = type;
    auto* node = static_cast<FsLockNode*>(platform::HeapAllocate(sizeof(FsLockNode)));
    if (node == nullptr) return;
    *node = {type, context->lockStack};
    context->lockStack = node;
}

// The stack alone decides what is in force next; the type that the caller names does not count.
void PopLock(FsStoreContext* context) {
    const platform::MutexGuard guard(context->stackLock);
    FsLockNode* top = context->lockStack;
    if (top != nullptr) {
        context->lockStack = top->below;
        platform::HeapRelease(top);
    }
    context->currentLock = context->lockStack != nullptr ? context->lockStack->type : kNoLock;
}

// Our own engine waits as long as the process wants, and tells of it.
storage::Status AskForLock(uint32_t engineType, FsStoreContext* context) {
    if (!FsHasOwnEngine() || engineType == kNoLock)
        return FsEngine().StorageGetLock(context->container, static_cast<int32_t>(engineType));
    storage::LockPatience patience;
    patience.milliseconds = LockWaitMilliseconds();
    patience.waiting = LockWaitCallback();
    return storage::GetContainerLock(context->container, patience);
}

FBR_STATUS TakeLock(uint32_t engineType, FsStoreContext* context) {
    if (context == nullptr) return FSSTATUS_INVALID_PARAMETER;
    const storage::Status code = AskForLock(engineType, context);
    FsTraceLine(kTraceDetail, "FS_GetLockEx", "StorageGetLock returned [{}]", code);
    if (code != storage::kOk) return FSSTATUS_LOCK_FAILED;
    PushLock(engineType, context);
    return FSSTATUS_SUCCESS;
}

FBR_STATUS DropLock(uint32_t engineType, FsStoreContext* context) {
    if (context == nullptr) return FSSTATUS_INVALID_PARAMETER;
    // Who has no lock takes nobody's right to write away.
    if (FsHasOwnEngine() && storage::IsLockedByOthers(context->container))
        return FSSTATUS_LOCK_FAILED;
    PopLock(context);
    const storage::Status code =
        FsEngine().StorageReleaseLock(context->container, static_cast<int32_t>(engineType));
    return code == storage::kOk ? FSSTATUS_SUCCESS : FSSTATUS_LOCK_FAILED;
}

}  // namespace

FBR_STATUS FS_GetLockEx(uint32_t type, FsStoreContext* context) {
    const FsTraceScope trace("FS_GetLockEx", "[ENTER] L[{}] GH[{:X}]", type, context);
    // The engine refuses 0, so a type that nobody knows ends there.
    const FBR_STATUS status = TakeLock(SwapLockType(type, kNoLock), context);
    trace.Exit("[EXIT] fsStatus = [{}] L[{}] GH[{:X}] S[{}] D[{}]", status, type, context, status);
    return status;
}

FBR_STATUS FS_ReleaseLockEx(uint32_t type, FsStoreContext* context) {
    const FsTraceScope trace("FS_ReleaseLockEx", "[ENTER] L[{}] GH[{:X}]", type, context);
    // Unlike in FS_GetLockEx an unknown type is a lock type to the engine: callers release with
    // whatever type they have at hand.
    const FBR_STATUS status = DropLock(SwapLockType(type, kWriteLock), context);
    trace.Exit("[EXIT] L[{}] GH[{:X}] S[{}] D[{}]", type, context, status);
    return status;
}

FBR_STATUS FS_GetLockTypeEx(uint32_t* type, FsStoreContext* context) {
    if (context == nullptr || type == nullptr) return FSSTATUS_INVALID_PARAMETER;
    *type = SwapLockType(context->currentLock, 0);
    return FSSTATUS_SUCCESS;
}

void FsFreeLockStack(FsStoreContext* context) {
    context->stackLock.AssertAlone();
    while (context->lockStack != nullptr) PopLock(context);
}
