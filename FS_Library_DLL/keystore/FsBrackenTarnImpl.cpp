// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsBrackenTarnImpl.h"

#include "FS_Library_DLL/Backends.h"
#include "FS_Library_DLL/keystore/FsEnumerate.h"
#include "FS_Library_DLL/keystore/FsIntegrity.h"
#include "FS_Library_DLL/keystore/FsKeys.h"
#include "FS_Library_DLL/keystore/FsLocks.h"
#include "FS_Library_DLL/keystore/FsStore.h"
#include "FS_Library_DLL/keystore/FsTree.h"
#include "FS_Library_DLL/keystore/FsValues.h"

std::unique_ptr<IFSInterface> CreateContainerBackend() {
    return std::make_unique<FsBrackenTarnImpl>();
}

FBR_STATUS FsBrackenTarnImpl::FBR_InitialiseEx(const WChar* path) {
    return FS_InitialiseEx(path, &context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_DeInitialiseEx() {
    FsStoreContext* context = context_;
    context_ = nullptr;
    return FsCloseStore(context);
}
FBR_STATUS FsBrackenTarnImpl::FBR_CheckFile() {
    return FsCheckStore(context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_IsCorrupted(uint32_t* corrupted) {
    return FsIsCorrupted(corrupted, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_Compact(uint32_t* done) {
    return FsCompact(done, context_);
}

FBR_STATUS FsBrackenTarnImpl::FBR_GetLockEx(uint32_t lockType) {
    return FS_GetLockEx(lockType, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_ReleaseLockEx(uint32_t lockType) {
    return FS_ReleaseLockEx(lockType, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_GetLockTypeEx(uint32_t* lockType) {
    return FS_GetLockTypeEx(lockType, context_);
}

FBR_STATUS FsBrackenTarnImpl::FBR_DeleteValue(int64_t key, const WChar* name) {
    return FsDeleteValue(key, name, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_SetValue(int64_t key, const WChar* name, uint32_t type,
                                           const void* data, uint64_t size) {
    return FsSetValue(key, name, type, data, size, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_QueryValue(int64_t key, const WChar* name, void* buffer,
                                             uint64_t bufferSize, uint64_t* size, uint32_t* type) {
    return FsQueryValue(key, name, buffer, bufferSize, size, type, context_);
}

FBR_STATUS FsBrackenTarnImpl::FBR_CreateDirEx(int64_t parent, const WChar* name,
                                              FBR_CREATEOPTIONS options, int64_t* key) {
    return FS_CreateDirEx(parent, name, options, key, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_OpenDirEx(int64_t parent, const WChar* name, int64_t* key) {
    return FS_OpenDirEx(parent, name, key, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_DeleteDirEx(int64_t key) {
    return FS_DeleteDirEx(key, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_DeleteDirNamedEx(const WChar* name) {
    return FS_DeleteDirNamedEx(name, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_RenameDirEx(int64_t key, const WChar* newName) {
    return FS_RenameDirEx(key, newName, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_CloseDirEx(int64_t key) {
    return FS_CloseDirEx(key, context_);
}

FBR_STATUS FsBrackenTarnImpl::FBR_EnumIntFileEx(int64_t key, uint32_t index, WChar** name) {
    return FS_EnumInt_Private(key, index, name, FsEnumMode::Values, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_EnumIntDirEx(int64_t key, uint32_t index, WChar** name) {
    return FS_EnumInt_Private(key, index, name, FsEnumMode::Keys, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_GetName_DirEx(int64_t key, WChar** name) {
    return FS_GetName_DirEx(key, name, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_GetFullName_DirEx(int64_t key, WChar** name) {
    return FS_GetFullName_DirEx(key, name, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_DuplicateDirHandleEx(int64_t key, int64_t* newKey) {
    return FS_DuplicateDirHandleEx(key, newKey, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_GetDirTimesEx(int64_t key, FBR_SYSTEMTIME* time) {
    return FS_GetDirTimesEx(key, time, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_EnumerateAllValues(int64_t key, std::vector<WString>& names) {
    return FS_EnumerateAllValues(key, names, context_);
}
FBR_STATUS FsBrackenTarnImpl::FBR_EnumerateAllKeys(int64_t key, std::vector<WString>& names) {
    return FS_EnumerateAllKeys(key, names, context_);
}

// A container keeps no security of its keys.
FBR_STATUS FsBrackenTarnImpl::FBR_GetKeySecurityString(int64_t, WChar*, uint32_t*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}
FBR_STATUS FsBrackenTarnImpl::FBR_SetKeySecurityString(int64_t, const WChar*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}
