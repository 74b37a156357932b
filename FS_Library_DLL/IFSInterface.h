// SPDX-License-Identifier: MIT
// The one interface that every store answers, whatever it is kept in.
#pragma once

#include <vector>

#include "include/ZrFsTypes.h"
#include "platform/Text.h"

using platform::WChar;
using platform::WString;

// A store handle is a pointer to one of these. The order of the operations is part of the
// contract, and so are their meanings, which stand with the exported functions of the same names
// in include/ZrFsLibrary.h. An operation that a backend lacks answers FSSTATUS_NOT_IMPLEMENTED.
struct IFSInterface {
    virtual ~IFSInterface() = default;
    virtual FBR_STATUS FBR_InitialiseEx(const WChar* path) = 0;
    virtual FBR_STATUS FBR_DeInitialiseEx() = 0;
    virtual FBR_STATUS FBR_CheckFile() = 0;
    virtual FBR_STATUS FBR_IsCorrupted(uint32_t* corrupted) = 0;
    virtual FBR_STATUS FBR_Compact(uint32_t* done) = 0;
    virtual FBR_STATUS FBR_GetLockEx(uint32_t lockType) = 0;
    virtual FBR_STATUS FBR_ReleaseLockEx(uint32_t lockType) = 0;
    virtual FBR_STATUS FBR_GetLockTypeEx(uint32_t* lockType) = 0;
    virtual FBR_STATUS FBR_DeleteValue(int64_t key, const WChar* name) = 0;
    virtual FBR_STATUS FBR_SetValue(int64_t key, const WChar* name, uint32_t type, const void* data,
                                    uint64_t size) = 0;
    virtual FBR_STATUS FBR_QueryValue(int64_t key, const WChar* name, void* buffer,
                                      uint64_t bufferSize, uint64_t* size, uint32_t* type) = 0;
    virtual FBR_STATUS FBR_CreateDirEx(int64_t parent, const WChar* name, FBR_CREATEOPTIONS options,
                                       int64_t* key) = 0;
    virtual FBR_STATUS FBR_OpenDirEx(int64_t parent, const WChar* name, int64_t* key) = 0;
    virtual FBR_STATUS FBR_DeleteDirEx(int64_t key) = 0;
    virtual FBR_STATUS FBR_DeleteDirNamedEx(const WChar* name) = 0;
    virtual FBR_STATUS FBR_RenameDirEx(int64_t key, const WChar* newName) = 0;
    virtual FBR_STATUS FBR_CloseDirEx(int64_t key) = 0;
    virtual FBR_STATUS FBR_EnumIntFileEx(int64_t key, uint32_t index, WChar** name) = 0;
    virtual FBR_STATUS FBR_EnumIntDirEx(int64_t key, uint32_t index, WChar** name) = 0;
    virtual FBR_STATUS FBR_GetName_DirEx(int64_t key, WChar** name) = 0;
    virtual FBR_STATUS FBR_GetFullName_DirEx(int64_t key, WChar** name) = 0;
    virtual FBR_STATUS FBR_DuplicateDirHandleEx(int64_t key, int64_t* newKey) = 0;
    virtual FBR_STATUS FBR_GetDirTimesEx(int64_t key, FBR_SYSTEMTIME* time) = 0;
    virtual FBR_STATUS FBR_EnumerateAllValues(int64_t key, std::vector<WString>& names) = 0;
    virtual FBR_STATUS FBR_EnumerateAllKeys(int64_t key, std::vector<WString>& names) = 0;
    virtual FBR_STATUS FBR_GetKeySecurityString(int64_t key, WChar* buffer,
                                                uint32_t* bufferChars) = 0;
    virtual FBR_STATUS FBR_SetKeySecurityString(int64_t key, const WChar* sddl) = 0;
};
