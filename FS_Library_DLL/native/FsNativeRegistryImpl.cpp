// SPDX-License-Identifier: MIT
// The life of the store, the slots that do nothing here, and those that are one native call.
#include "FS_Library_DLL/native/FsNativeRegistryImpl.h"

#include "FS_Library_DLL/FsSwitches.h"
#include "FS_Library_DLL/native/NativeBuffer.h"
#include "FS_Library_DLL/native/NativeStatus.h"
#include "FS_Library_DLL/registry/KeyTreeDeleter.h"

namespace {

bool IsVersionSix() {
    OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof version;
    version.dwMajorVersion = 6;
    constexpr DWORD kKinds = VER_MINORVERSION | VER_MAJORVERSION;
    DWORDLONG conditions = ::VerSetConditionMask(0, VER_MAJORVERSION, VER_GREATER_EQUAL);
    conditions = ::VerSetConditionMask(conditions, VER_MINORVERSION, VER_GREATER_EQUAL);
    return ::VerifyVersionInfoW(&version, kKinds, conditions) != FALSE;
}

}  // namespace

FsNativeRegistryImpl::FsNativeRegistryImpl(bool pathOnly)
    : ntDll_(GetNtDllFunctions()), pathOnly_(pathOnly), isVistaOrLater_(IsVersionSix()) {}

FsNativeRegistryImpl::~FsNativeRegistryImpl() {
    nestedStore_.reset();
    CloseRootKey();
}

FsNativeRegistryImpl::NestedStore::~NestedStore() {
    if (store == nullptr) return;
    status = store->FBR_DeInitialiseEx();
    delete store;
}

FBR_STATUS FsNativeRegistryImpl::FBR_InitialiseEx(const WChar* path) {
    if (path == nullptr) return FSSTATUS_INVALID_PARAMETER;
    rootPath_ = path;
    if (rootPath_.size() > 1 && rootPath_.back() == L'\\') rootPath_.pop_back();
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsNativeRegistryImpl::FBR_DeInitialiseEx() {
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsNativeRegistryImpl::FBR_CheckFile() {
    return g_switches.fileChecking ? FSSTATUS_SUCCESS : FSSTATUS_FAILED;
}

FBR_STATUS FsNativeRegistryImpl::FBR_IsCorrupted(uint32_t* corrupted) {
    if (corrupted != nullptr) *corrupted = 0;
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsNativeRegistryImpl::FBR_Compact(uint32_t* done) {
    if (done != nullptr) *done = 1;
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsNativeRegistryImpl::FBR_GetLockEx(uint32_t) {
    return FSSTATUS_SUCCESS;
}
FBR_STATUS FsNativeRegistryImpl::FBR_ReleaseLockEx(uint32_t) {
    return FSSTATUS_SUCCESS;
}
FBR_STATUS FsNativeRegistryImpl::FBR_GetLockTypeEx(uint32_t*) {
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsNativeRegistryImpl::FBR_DeleteValue(int64_t key, const WChar* name) {
    return nt::ToFsStatus(
        nt::Call(ntDll_->ZwDeleteValueKey, nt::ToHandle(key), nt::Name(*ntDll_, name).Get()));
}

FBR_STATUS FsNativeRegistryImpl::FBR_SetValue(int64_t key, const WChar* name, uint32_t type,
                                              const void* data, uint64_t size) {
    // The native call counts in 32 bits; a length that does not fit must not be cut to one that
    // does.
    if (size > UINT32_MAX || (data == nullptr && size != 0)) return FSSTATUS_INVALID_PARAMETER;
    return nt::ToFsStatus(nt::Call(ntDll_->ZwSetValueKey, nt::ToHandle(key),
                                   nt::Name(*ntDll_, name).Get(), ULONG{0}, ULONG{type},
                                   const_cast<void*>(data), static_cast<ULONG>(size)));
}

FBR_STATUS FsNativeRegistryImpl::FBR_DeleteDirEx(int64_t key) {
    return nt::ToFsStatus(nt::Call(ntDll_->ZwDeleteKey, nt::ToHandle(key)));
}

FBR_STATUS FsNativeRegistryImpl::FBR_DeleteDirNamedEx(const WChar* name) {
    if (name == nullptr) return FSSTATUS_INVALID_PARAMETER;
    KeyTreeDeleter record(this, name);
    return DeleteOpenKeyTree(record);
}

FBR_STATUS FsNativeRegistryImpl::FBR_RenameDirEx(int64_t key, const WChar* newName) {
    return nt::ToFsStatus(
        nt::Call(ntDll_->ZwRenameKey, nt::ToHandle(key), nt::Name(*ntDll_, newName).Get()));
}

FBR_STATUS FsNativeRegistryImpl::FBR_CloseDirEx(int64_t key) {
    if (ntDll_->ZwClose == nullptr) return FSSTATUS_SUCCESS;
    return nt::ToFsStatus(ntDll_->ZwClose(nt::ToHandle(key)));
}

FBR_STATUS FsNativeRegistryImpl::FBR_DuplicateDirHandleEx(int64_t key, int64_t* newKey) {
    if (newKey == nullptr) return FSSTATUS_INVALID_PARAMETER;
    HANDLE copy = nullptr;
    const NTSTATUS status = Duplicate(nt::ToHandle(key), &copy);
    if (NT_SUCCESS(status)) *newKey = nt::ToKey(copy);
    return nt::ToFsStatus(status);
}

FBR_STATUS FsNativeRegistryImpl::FBR_GetKeySecurityString(int64_t, WChar*, uint32_t*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}
FBR_STATUS FsNativeRegistryImpl::FBR_SetKeySecurityString(int64_t, const WChar*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}
