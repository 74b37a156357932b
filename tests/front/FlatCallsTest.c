// SPDX-License-Identifier: MIT
/* The flat interface from C: opens a store, sets a value and reads it back. */
#include <string.h>

#include "include/ZrFsLibrary.h"

#define CHECK(condition) \
    if (!(condition)) return __LINE__

/* 0, or the line of the first failure. */
int SetAndReadFromC(const FBR_WCHAR* path) {
    static const FBR_WCHAR key_name[] = {'k', '\\', 's', 0};
    static const FBR_WCHAR value_name[] = {'v', 0};
    const uint32_t data = 0x12345678;
    uint32_t found = 0;
    uint32_t type = 0;
    uint64_t size = 0;
    FBR_STORE store = NULL;
    FBR_KEY key = 0;
    FBR_WCHAR* name = NULL;

    CHECK(FBR_InitialiseEx(path, &store, FS_VR_METHOD_TARN) == FSSTATUS_SUCCESS);
    CHECK(FBR_GetLockEx(1, store) == FSSTATUS_SUCCESS);
    CHECK(FBR_CreateDirEx(0, key_name, FSCREATEOPTIONS_NONE, &key, store) == FSSTATUS_SUCCESS);
    CHECK(FBR_SetValue(key, value_name, 4, &data, sizeof data, store) == FSSTATUS_SUCCESS);
    CHECK(FBR_QueryValue(key, value_name, &found, sizeof found, &size, &type, store) ==
          FSSTATUS_SUCCESS);
    CHECK(found == data && size == sizeof data && type == 4);
    CHECK(FBR_EnumIntFileEx(key, 0, &name, store) == FSSTATUS_SUCCESS);
    CHECK(memcmp(name, value_name, sizeof value_name) == 0);
    FBR_Release(name);
    CHECK(FBR_CloseDirEx(key, store) == FSSTATUS_SUCCESS);
    CHECK(FBR_ReleaseLockEx(1, store) == FSSTATUS_SUCCESS);
    CHECK(FBR_DeInitialiseEx(store) == FSSTATUS_SUCCESS);
    return 0;
}
