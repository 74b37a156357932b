// SPDX-License-Identifier: MIT
// The exported functions on values, and the listings that fill a vector of the caller's.
#include "FS_Library_DLL/IFSInterface.h"
#include "FS_Library_DLL/ValueName.h"
#include "include/ZrFsLibrary.h"

FBR_STATUS FBR_DeleteValue(FBR_KEY key, const FBR_WCHAR* name, FBR_STORE handle) {
    if (name == nullptr || handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_DeleteValue(key, name);
}

FBR_STATUS FBR_SetValue(FBR_KEY key, const FBR_WCHAR* name, uint32_t type, const void* data,
                        uint64_t size, FBR_STORE handle) {
    if (name == nullptr || handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_SetValue(key, OrDefault(name), type, data, size);
}

FBR_STATUS FBR_QueryValue(FBR_KEY key, const FBR_WCHAR* name, void* buffer, uint64_t bufferSize,
                          uint64_t* size, uint32_t* type, FBR_STORE handle) {
    if (name == nullptr || handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_QueryValue(key, OrDefault(name), buffer, bufferSize, size, type);
}

FBR_STATUS FBR_EnumIntFileEx(FBR_KEY key, uint32_t index, FBR_WCHAR** name, FBR_STORE handle) {
    if (handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_EnumIntFileEx(key, index, name);
}

FBR_STATUS FBR_EnumerateAllValues(FBR_KEY key, std::vector<std::basic_string<FBR_WCHAR>>& names,
                                  FBR_STORE handle) {
    if (key == 0 || handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_EnumerateAllValues(key, names);
}

FBR_STATUS FBR_EnumerateAllKeys(FBR_KEY key, std::vector<std::basic_string<FBR_WCHAR>>& names,
                                FBR_STORE handle) {
    if (key == 0 || handle == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return handle->FBR_EnumerateAllKeys(key, names);
}
