// SPDX-License-Identifier: MIT
// The store that offers nothing: the reserved method, and a backend that this system lacks.
#pragma once

#include "FS_Library_DLL/IFSInterface.h"

// Every operation answers FSSTATUS_NOT_IMPLEMENTED, so it never opens. A backend that lacks single
// operations may derive from it.
class FsVarnholdTarnImpl : public IFSInterface {
  public:
#define NOT_OFFERED(...)                 \
    FBR_STATUS __VA_ARGS__ override {    \
        return FSSTATUS_NOT_IMPLEMENTED; \
    }
    NOT_OFFERED(FBR_InitialiseEx(const WChar*));
    NOT_OFFERED(FBR_DeInitialiseEx());
    NOT_OFFERED(FBR_CheckFile());
    NOT_OFFERED(FBR_IsCorrupted(uint32_t*));
    NOT_OFFERED(FBR_Compact(uint32_t*));
    NOT_OFFERED(FBR_GetLockEx(uint32_t));
    NOT_OFFERED(FBR_ReleaseLockEx(uint32_t));
    NOT_OFFERED(FBR_GetLockTypeEx(uint32_t*));
    NOT_OFFERED(FBR_DeleteValue(int64_t, const WChar*));
    NOT_OFFERED(FBR_SetValue(int64_t, const WChar*, uint32_t, const void*, uint64_t));
    NOT_OFFERED(FBR_QueryValue(int64_t, const WChar*, void*, uint64_t, uint64_t*, uint32_t*));
    NOT_OFFERED(FBR_CreateDirEx(int64_t, const WChar*, FBR_CREATEOPTIONS, int64_t*));
    NOT_OFFERED(FBR_OpenDirEx(int64_t, const WChar*, int64_t*));
    NOT_OFFERED(FBR_DeleteDirEx(int64_t));
    NOT_OFFERED(FBR_DeleteDirNamedEx(const WChar*));
    NOT_OFFERED(FBR_RenameDirEx(int64_t, const WChar*));
    NOT_OFFERED(FBR_CloseDirEx(int64_t));
    NOT_OFFERED(FBR_EnumIntFileEx(int64_t, uint32_t, WChar**));
    NOT_OFFERED(FBR_EnumIntDirEx(int64_t, uint32_t, WChar**));
    NOT_OFFERED(FBR_GetName_DirEx(int64_t, WChar**));
    NOT_OFFERED(FBR_GetFullName_DirEx(int64_t, WChar**));
    NOT_OFFERED(FBR_DuplicateDirHandleEx(int64_t, int64_t*));
    NOT_OFFERED(FBR_GetDirTimesEx(int64_t, FBR_SYSTEMTIME*));
    NOT_OFFERED(FBR_EnumerateAllValues(int64_t, std::vector<WString>&));
    NOT_OFFERED(FBR_EnumerateAllKeys(int64_t, std::vector<WString>&));
    NOT_OFFERED(FBR_GetKeySecurityString(int64_t, WChar*, uint32_t*));
    NOT_OFFERED(FBR_SetKeySecurityString(int64_t, const WChar*));
#undef NOT_OFFERED
};
