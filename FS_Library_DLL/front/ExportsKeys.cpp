// SPDX-License-Identifier: MIT
// The exported functions on keys. A zero key goes on to the store, but for the security pair and
// the listings of ExportsValues.cpp.
#include "FS_Library_DLL/IFSInterface.h"
#include "include/ZrFsLibrary.h"

FBR_STATUS FBR_CreateDirEx(FBR_KEY parent, const FBR_WCHAR* name, FBR_CREATEOPTIONS options,
                           FBR_KEY* key, FBR_STORE handle) {
    if (name == nullptr || handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_CreateDirEx(parent, name, options, key);
}

FBR_STATUS FBR_OpenDirEx(FBR_KEY parent, const FBR_WCHAR* name, FBR_KEY* key, FBR_STORE handle) {
    if (name == nullptr || handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_OpenDirEx(parent, name, key);
}

FBR_STATUS FBR_DeleteDirEx(FBR_KEY key, FBR_STORE handle) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_DeleteDirEx(key);
}

FBR_STATUS FBR_DeleteDirNamedEx(const FBR_WCHAR* name, FBR_STORE handle) {
    if (name == nullptr || handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_DeleteDirNamedEx(name);
}

FBR_STATUS FBR_RenameDirEx(FBR_KEY key, const FBR_WCHAR* newName, FBR_STORE handle) {
    if (newName == nullptr || handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_RenameDirEx(key, newName);
}

FBR_STATUS FBR_CloseDirEx(FBR_KEY key, FBR_STORE handle) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_CloseDirEx(key);
}

FBR_STATUS FBR_EnumIntDirEx(FBR_KEY key, uint32_t index, FBR_WCHAR** name, FBR_STORE handle) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_EnumIntDirEx(key, index, name);
}

FBR_STATUS FBR_GetName_DirEx(FBR_KEY key, FBR_WCHAR** name, FBR_STORE handle) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_GetName_DirEx(key, name);
}

FBR_STATUS FBR_GetFullName_DirEx(FBR_KEY key, FBR_WCHAR** name, FBR_STORE handle) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_GetFullName_DirEx(key, name);
}

FBR_STATUS FBR_DuplicateDirHandleEx(FBR_KEY key, FBR_KEY* newKey, FBR_STORE handle) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_DuplicateDirHandleEx(key, newKey);
}

FBR_STATUS FBR_GetDirTimesEx(FBR_KEY key, FBR_SYSTEMTIME* time, FBR_STORE handle) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_GetDirTimesEx(key, time);
}

FBR_STATUS FBR_GetKeySecurityString(FBR_KEY key, FBR_WCHAR* buffer, uint32_t* bufferChars,
                                    FBR_STORE handle) {
    if (key == 0 || handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_GetKeySecurityString(key, buffer, bufferChars);
}

FBR_STATUS FBR_SetKeySecurityString(FBR_KEY key, const FBR_WCHAR* sddl, FBR_STORE handle) {
    if (key == 0 || handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_SetKeySecurityString(key, sddl);
}
