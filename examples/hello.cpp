// SPDX-License-Identifier: MIT
// Opens a store, sets a value and reads it back.
#include <ZrFsLibrary.h>

#include <cstdio>

int main() {
    FBR_STORE store = nullptr;
    FBR_KEY key = 0;
    uint32_t count = 42, read = 0, type = 0;
    uint64_t size = 0;
    if (FBR_InitialiseEx(FBR_TEXT("hello.fbr"), &store, FS_VR_METHOD_TARN) != FSSTATUS_SUCCESS) {
        return 1;
    }
    FBR_GetLockEx(FBR_LOCK_WRITE, store);  // a change needs the store's write lock
    FBR_CreateDirEx(0, FBR_TEXT("\\Software\\Hello"), FSCREATEOPTIONS_NONE, &key, store);
    FBR_SetValue(key, FBR_TEXT("Count"), FBR_TYPE_DWORD, &count, sizeof(count), store);
    FBR_ReleaseLockEx(FBR_LOCK_WRITE, store);
    FBR_QueryValue(key, FBR_TEXT("Count"), &read, sizeof(read), &size, &type, store);
    std::printf("Count is %u\n", static_cast<unsigned>(read));
    FBR_CloseDirEx(key, store);
    return FBR_DeInitialiseEx(store);
}
