// SPDX-License-Identifier: MIT
// The exported functions that concern a store as a whole, and those that need none. Each checks its
// arguments and calls one operation of the store.
#include <cstring>

#include "FS_Library_DLL/Backends.h"
#include "FS_Library_DLL/FsSwitches.h"
#include "FS_Library_DLL/front/PathGrammar.h"
#include "FS_Library_DLL/keystore/FsIntegrity.h"
#include "include/ZrFsLibrary.h"
#include "platform/Heap.h"
#include "storage/StorageApi.h"

namespace {

// Null where the path or the method is refused.
std::unique_ptr<IFSInterface> MakeStore(const StoreRequest& request, FBR_METHOD method) {
    switch (request.kind) {
        case BackendKind::Container:
            return CreateContainerBackend();
        case BackendKind::Native:
            return CreateNativeBackend(request.remote);
        case BackendKind::Shell:
            return CreateShellBackend();
        case BackendKind::Hive:
            return CreateHiveBackend(WString(request.mountName));
        case BackendKind::Offline:
            return CreateOfflineBackend();
        case BackendKind::Cluster:
            return CreateClusterBackend();
        case BackendKind::Ipc:
            return CreateIpcBackend(method, WString(request.server));
        case BackendKind::None:
            break;
    }
    return nullptr;
}

}  // namespace

FBR_STATUS FBR_InitialiseEx(const FBR_WCHAR* path, FBR_STORE* handle, FBR_METHOD method) {
    if (path == nullptr || handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    const StoreRequest request = ParseStorePath(path, method);
    std::unique_ptr<IFSInterface> store = MakeStore(request, method);
    if (store == nullptr) return FSSTATUS_INVALID_PARAMETER;
    const WString storePath(request.storePath);
    const FBR_STATUS status = store->FBR_InitialiseEx(storePath.c_str());
    if (status == FSSTATUS_SUCCESS) *handle = store.release();
    return status;
}

FBR_STATUS FBR_DeInitialiseEx(FBR_STORE handle) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    const FBR_STATUS status = handle->FBR_DeInitialiseEx();
    delete handle;
    return status;
}

FBR_STATUS FBR_CheckFile(FBR_STORE handle) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_CheckFile();
}

FBR_STATUS FBR_CheckFileEx(const FBR_WCHAR* path, FBR_CheckCallback callback) {
    if (path == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return FS_CheckFileEx(path, callback);
}

FBR_STATUS FBR_CheckAndRepairFileEx(const FBR_WCHAR* path, FBR_CheckCallback callback) {
    if (path == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return FS_CheckAndRepairFileEx(path, callback);
}

FBR_STATUS FBR_IsCorrupted(FBR_STORE handle, uint32_t* corrupted) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_IsCorrupted(corrupted);
}

FBR_STATUS FBR_Compact(FBR_STORE handle, uint32_t* done) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_Compact(done);
}

FBR_STATUS FBR_GetLockEx(uint32_t lockType, FBR_STORE handle) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_GetLockEx(lockType);
}

FBR_STATUS FBR_ReleaseLockEx(uint32_t lockType, FBR_STORE handle) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_ReleaseLockEx(lockType);
}

FBR_STATUS FBR_GetLockTypeEx(FBR_STORE handle, uint32_t* lockType) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_GetLockTypeEx(lockType);
}

void FBR_Release(void* memory) {
    platform::HeapRelease(memory);
}

void FBR_Logging(bool enable, const FBR_WCHAR* directory, uint32_t level, bool enableOnCorruption) {
    if (directory == nullptr) return;
    g_switches.trace = enable;
    g_switches.traceOnCorruption = !enable && enableOnCorruption;
    g_switches.traceLevel = level;
    const WStringView text = WStringView(directory).substr(0, kLogDirectoryUnits - 1);
    std::memcpy(g_switches.logDirectory, text.data(), text.size() * sizeof(WChar));
    g_switches.logDirectory[text.size()] = 0;
}

void FBR_FileChecking(bool on) {
    g_switches.fileChecking = on;
}

FBR_STATUS FBR_SetTARN_Functions(const void* table) {
    if (table == nullptr) return FSSTATUS_INVALID_PARAMETER;
    storage::StorageFunctionTable functions;
    std::memcpy(&functions, table, sizeof functions);
    storage::SetFunctions(functions);
    return FSSTATUS_SUCCESS;
}
