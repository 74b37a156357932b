// SPDX-License-Identifier: MIT
/* Makes a key with three values, if it is not there, and lists it, in plain C: C11 on Linux, C99 on
 * Windows. */
#include <zrfs/ZrFsLibrary.h>

#include <stdio.h>
#include <stdlib.h>

/* Gives up with what the call that failed says. */
static void check(FBR_STATUS status, const char* what) {
    if (status == FSSTATUS_SUCCESS) return;
    fprintf(stderr, "cannot %s: %s\n", what, FsStatusText(status));
    exit(1);
}

/* The names here are plain ASCII; others want a conversion from UTF-16. */
static void print(const FBR_WCHAR* text) {
    for (; *text != 0; ++text) putchar((int)*text);
}

int main(void) {
    static const FBR_WCHAR* const names[] = {FBR_TEXT("Width"), FBR_TEXT("Height"),
                                             FBR_TEXT("Depth")};
    FBR_STORE store = NULL;
    FBR_KEY key = 0;
    FBR_WCHAR* name = NULL;
    uint32_t i, value, type;
    uint64_t size;
    FBR_STATUS status;

    check(FBR_InitialiseEx(FBR_TEXT("list.fbr"), &store, FS_VR_METHOD_TARN), "open the store");
    check(FBR_GetLockEx(FBR_LOCK_WRITE, store), "have its lock");
    status = FBR_CreateDirEx(0, FBR_TEXT("\\Boxes\\Small"), FSCREATEOPTIONS_NONE, &key, store);
    if (status != FSSTATUS_ALREADY_EXISTS) check(status, "make a key"); /* else it is open, too */
    for (i = 0; i < 3; ++i) {
        value = 10 * (i + 1);
        check(FBR_SetValue(key, names[i], FBR_TYPE_DWORD, &value, sizeof value, store),
              "set a value");
    }
    check(FBR_ReleaseLockEx(FBR_LOCK_WRITE, store), "release the lock");

    for (i = 0; (status = FBR_EnumIntFileEx(key, i, &name, store)) == FSSTATUS_SUCCESS; ++i) {
        check(FBR_QueryValue(key, name, &value, sizeof value, &size, &type, store), "read a value");
        print(name);
        printf(" = %u\n", (unsigned)value);
        FBR_Release(name);
    }
    if (status != FSSTATUS_NO_MORE_ENTRIES) check(status, "list the values");
    FBR_CloseDirEx(key, store);
    check(FBR_DeInitialiseEx(store), "close the store");
    return 0;
}
