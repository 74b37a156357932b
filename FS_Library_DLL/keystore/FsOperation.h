// SPDX-License-Identifier: MIT
// The frames of the store's operations: what an operation does is one change, and what it reads is
// one state of the store, whoever else is at work on it.
//
// A frame takes the store's lock and the engine's for as long as its operation runs. Frames nest:
// an operation that is part of another one is part of its change, or of its reading. With an
// engine of somebody else in the table there is nothing to frame with, and the operation runs as
// it is.
#pragma once

#include <utility>

#include "FS_Library_DLL/keystore/FsStoreContext.h"
#include "storage/core/Context.h"
#include "storage/lifecycle/Sharing.h"

// Is the engine in the table the library's own, every function of it?
inline bool FsHasOwnEngine() {
    return storage::g_hasOwnFunctions.load(std::memory_order_relaxed);
}

// What becomes of a change whose operation did not succeed. An answer ("there is such a key") is
// no failure: what was done before it may stay.
using FsKeeps = bool (*)(storage::Status code);
inline bool FsKeepsSuccess(storage::Status code) {
    return code == storage::kOk;
}

// They end what was begun also when a callback of the library's own caller throws. Whoever makes
// one has containerLock, which it could not have begun without.
struct FsBatchScope {
    storage::StorageContext* container;

    storage::Status End(bool keep) ZRFS_NO_ANALYSIS {
        return storage::EndBatch(std::exchange(container, nullptr), keep);
    }
    ~FsBatchScope() {
        if (container != nullptr) End(false);
    }
};
struct FsReadScope {
    storage::StorageContext* container;

    storage::Status End(storage::Status result) ZRFS_NO_ANALYSIS {
        return storage::EndRead(std::exchange(container, nullptr), result);
    }
    ~FsReadScope() {
        if (container != nullptr) End(storage::kInternal);
    }
};

// What a frame runs. An operation that needs the store's lock says so itself; that the frame's
// store is its own is what the analysis cannot see, so that it looks at who comes here, and no
// further.
template <class Operation>
storage::Status FsRunLocked(FsStoreContext* context, Operation& operation)
    ZRFS_REQUIRES(context->lock) ZRFS_NO_ANALYSIS {
    return operation();
}

// Runs `operation` (a function that answers a Status) as one commit.
template <class Operation>
storage::Status FsChange(FsStoreContext* context, Operation operation,
                         FsKeeps keeps = FsKeepsSuccess) {
    const FsGuard guard(context->lock);
    if (!FsHasOwnEngine()) return FsRunLocked(context, operation);
    storage::StorageContext* container = context->container;
    const platform::MutexGuard engine(container->containerLock);
    if (container->batch != nullptr) return FsRunLocked(context, operation);
    storage::Status status = storage::MakeUsable(container);
    if (status == storage::kOk) status = storage::BeginBatch(container);
    if (status != storage::kOk) return status;
    FsBatchScope scope{container};
    const storage::Status result = FsRunLocked(context, operation);
    status = scope.End(keeps(result));
    return result == storage::kOk ? status : result;
}

// One try of a read. False: it met a change and is to be done again.
template <class Operation>
bool FsTryRead(FsStoreContext* context, Operation& operation, storage::Status* result) {
    const FsGuard guard(context->lock);
    storage::StorageContext* container = context->container;
    const platform::MutexGuard engine(container->containerLock);
    if (container->batch != nullptr || container->reading != 0) {
        *result = FsRunLocked(context, operation);
        return true;
    }
    storage::Status status = storage::BeginRead(container);
    if (status == storage::kOk) {
        FsReadScope scope{container};
        *result = FsRunLocked(context, operation);
        status = scope.End(*result);
    } else {
        *result = status == storage::kLockLost ? storage::kSharing : status;
    }
    return status != storage::kSharing;
}

// How a read that meets changes goes on: waits a little longer each time, and in the last resort
// takes the store's lock. False when that cannot be had in good time.
class FsReadRetry {
  public:
    explicit FsReadRetry(FsStoreContext* context) : context_(context) {}
    ~FsReadRetry();
    FsReadRetry(const FsReadRetry&) = delete;
    FsReadRetry& operator=(const FsReadRetry&) = delete;

    bool Again();

  private:
    FsStoreContext* context_;
    uint32_t tries_ = 0;
    bool locked_ = false;
};

// Runs `operation`, which must be able to run again from its start, on one state of the store. The
// caller does not hold the store's lock, but within another frame. kSharing when no such state
// could be had in good time.
template <class Operation>
storage::Status FsRead(FsStoreContext* context, Operation operation) {
    if (!FsHasOwnEngine()) {
        const FsGuard guard(context->lock);
        return FsRunLocked(context, operation);
    }
    storage::Status result = storage::kSharing;
    FsReadRetry retry(context);
    while (!FsTryRead(context, operation, &result))
        if (!retry.Again()) return storage::kSharing;
    return result;
}
