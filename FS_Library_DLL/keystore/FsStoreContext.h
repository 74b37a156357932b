// SPDX-License-Identifier: MIT
// One open container store.
#pragma once

#include <atomic>

#include "FS_Library_DLL/keystore/FsHandles.h"
#include "platform/RecursiveMutex.h"

// Engine lock types; the interface numbers them 1, 3, 2.
inline constexpr uint32_t kNoLock = 0;
inline constexpr uint32_t kWriteLock = 1;
inline constexpr uint32_t kReadLock = 2;
inline constexpr uint32_t kWriteLockToo = 3;  // also in force while the store is being opened

struct FsLockNode {
    uint32_t type;
    FsLockNode* below;
};

// A key to be deleted when the store is closed.
struct FsVolatileKey {
    FsVolatileKey* next;
    size_t length;
    WChar* path;  // in the same allocation

    WStringView Path() const { return {path, length}; }
};

struct FsStoreContext {
    storage::StorageContext* container = nullptr;  // from the opening to the close
    FsHandleTable handles ZRFS_GUARDED_BY(lock);
    FsVolatileKey* volatileKeys ZRFS_GUARDED_BY(lock) = nullptr;  // in order of creation
    FsVolatileKey* lastVolatileKey ZRFS_GUARDED_BY(lock) = nullptr;
    // Guards the handles and the volatile keys, and comes before the engine's lock. An operation
    // may call another one under it.
    platform::RecursiveMutex lock;
    // The store's lock as a whole process sees it, whichever thread took it.
    std::atomic<uint32_t> currentLock{kNoLock};
    platform::Mutex stackLock;  // a leaf: two threads may release at once
    FsLockNode* lockStack ZRFS_GUARDED_BY(stackLock) = nullptr;  // the lock taken last on top
};

using FsGuard = platform::MutexGuard<platform::RecursiveMutex>;

// A write lock is in force. Every operation that changes the store asks this first and answers -10
// without one.
inline bool FsMayWrite(const FsStoreContext* context) {
    const uint32_t type = context->currentLock.load(std::memory_order_relaxed);
    return type == kWriteLock || type == kWriteLockToo;
}

// The engine, as the process has it.
inline const storage::StorageFunctionTable& FsEngine() {
    return storage::g_storageFunctions;
}

inline constexpr uint16_t kPathSeparator = '\\';
inline constexpr uint32_t kAttributeDirectory = 2;
