#include "FS_Library_DLL/front/FsVarnholdTarnImpl.h"

#include "FS_Library_DLL/Backends.h"

std::unique_ptr<IFSInterface> CreateShellBackend() {
    return std::make_unique<FsVarnholdTarnImpl>();
}

FBR_STATUS FsVarnholdTarnImpl::FBR_InitialiseEx(const WChar*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_DeInitialiseEx() {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_CheckFile() {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_IsCorrupted(uint32_t*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_Compact(uint32_t*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_GetLockEx(uint32_t) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_ReleaseLockEx(uint32_t) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_GetLockTypeEx(uint32_t*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_DeleteValue(int64_t, const WChar*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_SetValue(int64_t, const WChar*, uint32_t, const void*,
                                            uint64_t) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_QueryValue(int64_t, const WChar*, void*, uint64_t, uint64_t*,
                                              uint32_t*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_CreateDirEx(int64_t, const WChar*, FBR_CREATEOPTIONS, int64_t*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_OpenDirEx(int64_t, const WChar*, int64_t*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_DeleteDirEx(int64_t) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_DeleteDirNamedEx(const WChar*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_RenameDirEx(int64_t, const WChar*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_CloseDirEx(int64_t) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_EnumIntFileEx(int64_t, uint32_t, WChar**) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_EnumIntDirEx(int64_t, uint32_t, WChar**) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_GetName_DirEx(int64_t, WChar**) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_GetFullName_DirEx(int64_t, WChar**) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_DuplicateDirHandleEx(int64_t, int64_t*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_GetDirTimesEx(int64_t, FBR_SYSTEMTIME*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_EnumerateAllValues(int64_t, std::vector<WString>&) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_EnumerateAllKeys(int64_t, std::vector<WString>&) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_GetKeySecurityString(int64_t, WChar*, uint32_t*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsVarnholdTarnImpl::FBR_SetKeySecurityString(int64_t, const WChar*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}
