/* The flat interface of ZrFsLibrary: a small registry of the caller's own.
 *
 * A store is opened with FBR_InitialiseEx and closed with FBR_DeInitialiseEx. Inside it a key is
 * known by a 64-bit key handle that only its store can interpret; 0 stands for the root where a
 * parent is asked for. Strings are UTF-16 and end in a zero unit; a string that the library hands
 * out is given back with FBR_Release.
 *
 * Every function may be called from any thread. The switches (FBR_Logging, FBR_FileChecking,
 * FBR_SetTARN_Functions) are meant to be set once, before the first store is opened.
 */
#ifndef ZRFSLIBRARY_H
#define ZRFSLIBRARY_H

#include "ZrFsTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

FBR_API FBR_STATUS FBR_InitialiseEx(const FBR_WCHAR* path, FBR_STORE* handle, FBR_METHOD method);
FBR_API FBR_STATUS FBR_DeInitialiseEx(FBR_STORE handle);

FBR_API FBR_STATUS FBR_CheckFile(FBR_STORE handle);
FBR_API FBR_STATUS FBR_CheckFileEx(const FBR_WCHAR* path, FBR_CheckCallback callback);
FBR_API FBR_STATUS FBR_CheckAndRepairFileEx(const FBR_WCHAR* path, FBR_CheckCallback callback);
FBR_API FBR_STATUS FBR_IsCorrupted(FBR_STORE handle, uint32_t* corrupted);
FBR_API FBR_STATUS FBR_Compact(FBR_STORE handle, uint32_t* done);

FBR_API FBR_STATUS FBR_GetLockEx(uint32_t lockType, FBR_STORE handle);
FBR_API FBR_STATUS FBR_ReleaseLockEx(uint32_t lockType, FBR_STORE handle);
FBR_API FBR_STATUS FBR_GetLockTypeEx(FBR_STORE handle, uint32_t* lockType);

FBR_API FBR_STATUS FBR_DeleteValue(FBR_KEY key, const FBR_WCHAR* name, FBR_STORE handle);
FBR_API FBR_STATUS FBR_SetValue(FBR_KEY key, const FBR_WCHAR* name, uint32_t type, const void* data,
                                uint64_t size, FBR_STORE handle);
FBR_API FBR_STATUS FBR_QueryValue(FBR_KEY key, const FBR_WCHAR* name, void* buffer,
                                  uint64_t bufferSize, uint64_t* size, uint32_t* type,
                                  FBR_STORE handle);

FBR_API FBR_STATUS FBR_CreateDirEx(FBR_KEY parent, const FBR_WCHAR* name, FBR_CREATEOPTIONS options,
                                   FBR_KEY* key, FBR_STORE handle);
FBR_API FBR_STATUS FBR_OpenDirEx(FBR_KEY parent, const FBR_WCHAR* name, FBR_KEY* key,
                                 FBR_STORE handle);
FBR_API FBR_STATUS FBR_DeleteDirEx(FBR_KEY key, FBR_STORE handle);
FBR_API FBR_STATUS FBR_DeleteDirNamedEx(const FBR_WCHAR* name, FBR_STORE handle);
FBR_API FBR_STATUS FBR_RenameDirEx(FBR_KEY key, const FBR_WCHAR* newName, FBR_STORE handle);
FBR_API FBR_STATUS FBR_CloseDirEx(FBR_KEY key, FBR_STORE handle);

FBR_API FBR_STATUS FBR_EnumIntFileEx(FBR_KEY key, uint32_t index, FBR_WCHAR** name,
                                     FBR_STORE handle);
FBR_API FBR_STATUS FBR_EnumIntDirEx(FBR_KEY key, uint32_t index, FBR_WCHAR** name,
                                    FBR_STORE handle);
FBR_API FBR_STATUS FBR_GetName_DirEx(FBR_KEY key, FBR_WCHAR** name, FBR_STORE handle);
FBR_API FBR_STATUS FBR_GetFullName_DirEx(FBR_KEY key, FBR_WCHAR** name, FBR_STORE handle);
FBR_API FBR_STATUS FBR_DuplicateDirHandleEx(FBR_KEY key, FBR_KEY* newKey, FBR_STORE handle);
FBR_API FBR_STATUS FBR_GetDirTimesEx(FBR_KEY key, FBR_SYSTEMTIME* time, FBR_STORE handle);

FBR_API FBR_STATUS FBR_GetKeySecurityString(FBR_KEY key, FBR_WCHAR* buffer, uint32_t* bufferChars,
                                            FBR_STORE handle);
FBR_API FBR_STATUS FBR_SetKeySecurityString(FBR_KEY key, const FBR_WCHAR* sddl, FBR_STORE handle);

FBR_API void FBR_Release(void* memory);
FBR_API void FBR_Logging(bool enable, const FBR_WCHAR* directory, uint32_t level,
                         bool enableOnCorruption);
FBR_API void FBR_FileChecking(bool on);
FBR_API FBR_STATUS FBR_SetTARN_Functions(const void* table);

#ifdef __cplusplus
}

#include <string>
#include <vector>

extern "C" {
FBR_API FBR_STATUS FBR_EnumerateAllValues(FBR_KEY key,
                                          std::vector<std::basic_string<FBR_WCHAR>>& names,
                                          FBR_STORE handle);
FBR_API FBR_STATUS FBR_EnumerateAllKeys(FBR_KEY key,
                                        std::vector<std::basic_string<FBR_WCHAR>>& names,
                                        FBR_STORE handle);
}
#endif

#endif
