// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsIntegrity.h"

#include "FS_Library_DLL/keystore/FsEngineStatus.h"
#include "FS_Library_DLL/keystore/FsOperation.h"
#include "FS_Library_DLL/keystore/FsTrace.h"

namespace {

constexpr uint32_t kCorruptEntry = 15;
constexpr uint32_t kCompactPatience = 5000;  // milliseconds
constexpr size_t kNameUnits = 64;            // of the buffer that a callback gets as its user data

void DefaultCallback(void* userData, uint32_t code, uint32_t a, uint32_t, uint8_t, uint8_t*) {
    FS_ProgressUpdate(static_cast<const WChar*>(userData), code, a);
}

FBR_STATUS Check(const WChar* path, uint32_t flags, FBR_CheckCallback callback) {
    WChar name[kNameUnits] = {};
    // By name and not through the table: check and repair is not in it.
    return FsStatusFromEngine(
        storage::StorageCheckAndRepair(path, nullptr, flags, nullptr, nullptr, name,
                                       callback != nullptr ? callback : DefaultCallback));
}

}  // namespace

FBR_STATUS FS_CheckFileEx(const WChar* path, FBR_CheckCallback callback) {
    return FsCheckFile(path, callback, false);
}

FBR_STATUS FsCheckFile(const WChar* path, FBR_CheckCallback callback, bool locked) {
    constexpr const char* name = "FS_CheckFileEx";
    FsTraceLine(kTraceScope, name, "[ENTER]");
    FBR_STATUS status = FSSTATUS_INVALID_PARAMETER;
    if (path != nullptr) {
        FsTraceLine(kTraceDetail, name, "Checking file [{}] ", path);
        status = Check(
            path, storage::kCheckOnly | storage::kCheckDeep | (locked ? storage::kCheckLocked : 0),
            callback);
    }
    FsTraceLine(kTraceScope, name, "[EXIT] File [{}] ", path);
    return status;
}

FBR_STATUS FS_CheckAndRepairFileEx(const WChar* path, FBR_CheckCallback callback) {
    constexpr const char* name = "FS_CheckAndRepairFileEx";
    FsTraceLine(kTraceScope, name, "[ENTER]");
    FsTraceLine(kTraceScope, name, "Checking and repairing file [{}] ", path);
    const FBR_STATUS status = Check(path, storage::kCheckDeep, callback);
    FsTraceLine(kTraceScope, name, "[EXIT] File [{}] ", path);
    return status;
}

void FS_ProgressUpdate(const WChar* name, uint32_t code, uint32_t page) {
    if (code != kCorruptEntry || name == nullptr) return;
    if (!g_switches.trace) {
        if (!g_switches.traceOnCorruption) return;
        g_switches.trace = true;
        FS_OpenTraceFile();
    }
    FsTraceLine(kTraceFailure, "FS_ProgressUpdate",
                "Callback from FS_CheckFileEx. Corruption DirEntry : Page [{}] Entry Name [{}]",
                page, name);
}

FBR_STATUS FsCheckStore(FsStoreContext* context) {
    if (context == nullptr || context->container == nullptr || !g_switches.fileChecking)
        return FSSTATUS_FAILED;
    HeapString path;
    {
        const FsGuard guard(context->lock);
        const WChar* own = context->container->path;
        if (own != nullptr) path.text = FsHeapCopy(own);
    }
    if (path.text == nullptr) return FSSTATUS_FAILED;
    // A check under the store's own lock would wait for itself. The other threads of this store,
    // who may write under that lock, wait for the check.
    if (!FsHasOwnEngine() || !context->container->lock->IsMine())
        return FsCheckFile(path.text, nullptr, false);
    const std::lock_guard engine(context->container->containerLock);
    context->container->containerLock.AssertHeld();
    storage::SettleMap(context->container);
    return FsCheckFile(path.text, nullptr, true);
}

// One byte of the output is written; callers pass a word that holds 0.
FBR_STATUS FsIsCorrupted(uint32_t* corrupted, FsStoreContext* context) {
    if (context == nullptr || corrupted == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return FsStatusFromEngine(FsRead(context, [&] {
        return FsEngine().StorageIsCorrupted(context->container,
                                             reinterpret_cast<uint8_t*>(corrupted));
    }));
}

FBR_STATUS FsCompact(uint32_t* done, FsStoreContext* context) {
    if (context == nullptr || done == nullptr) return FSSTATUS_INVALID_PARAMETER;
    uint8_t* const flag = reinterpret_cast<uint8_t*>(done);
    if (!FsHasOwnEngine() || context->container->lock->IsMine()) {
        const FsGuard guard(context->lock);
        return FsStatusFromEngine(FsEngine().StorageCompact(context->container, flag));
    }
    // Not under the store's own lock: the one who has the container's may need that to go on.
    storage::LockPatience patience;
    patience.milliseconds = kCompactPatience;
    if (storage::GetContainerLock(context->container, patience) != storage::kOk)
        return FSSTATUS_LOCK_FAILED;
    const storage::Status code = FsEngine().StorageCompact(context->container, flag);
    storage::ReleaseContainerLock(context->container);
    return FsStatusFromEngine(code);
}
