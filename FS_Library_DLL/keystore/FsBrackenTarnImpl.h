// SPDX-License-Identifier: MIT
// A store in a single-file container.
#pragma once

#include "FS_Library_DLL/IFSInterface.h"

struct FsStoreContext;

// The operations lead to the FS_ functions. The destructor frees only the object: the store is
// closed by FBR_DeInitialiseEx.
class FsBrackenTarnImpl : public IFSInterface {
  public:
    FBR_STATUS FBR_InitialiseEx(const WChar* path) override;
    FBR_STATUS FBR_DeInitialiseEx() override;
    FBR_STATUS FBR_CheckFile() override;
    FBR_STATUS FBR_IsCorrupted(uint32_t* corrupted) override;
    FBR_STATUS FBR_Compact(uint32_t* done) override;
    FBR_STATUS FBR_GetLockEx(uint32_t lockType) override;
    FBR_STATUS FBR_ReleaseLockEx(uint32_t lockType) override;
    FBR_STATUS FBR_GetLockTypeEx(uint32_t* lockType) override;
    FBR_STATUS FBR_DeleteValue(int64_t key, const WChar* name) override;
    FBR_STATUS FBR_SetValue(int64_t key, const WChar* name, uint32_t type, const void* data,
                            uint64_t size) override;
    FBR_STATUS FBR_QueryValue(int64_t key, const WChar* name, void* buffer, uint64_t bufferSize,
                              uint64_t* size, uint32_t* type) override;
    FBR_STATUS FBR_CreateDirEx(int64_t parent, const WChar* name, FBR_CREATEOPTIONS options,
                               int64_t* key) override;
    FBR_STATUS FBR_OpenDirEx(int64_t parent, const WChar* name, int64_t* key) override;
    FBR_STATUS FBR_DeleteDirEx(int64_t key) override;
    FBR_STATUS FBR_DeleteDirNamedEx(const WChar* name) override;
    FBR_STATUS FBR_RenameDirEx(int64_t key, const WChar* newName) override;
    FBR_STATUS FBR_CloseDirEx(int64_t key) override;
    FBR_STATUS FBR_EnumIntFileEx(int64_t key, uint32_t index, WChar** name) override;
    FBR_STATUS FBR_EnumIntDirEx(int64_t key, uint32_t index, WChar** name) override;
    FBR_STATUS FBR_GetName_DirEx(int64_t key, WChar** name) override;
    FBR_STATUS FBR_GetFullName_DirEx(int64_t key, WChar** name) override;
    FBR_STATUS FBR_DuplicateDirHandleEx(int64_t key, int64_t* newKey) override;
    FBR_STATUS FBR_GetDirTimesEx(int64_t key, FBR_SYSTEMTIME* time) override;
    FBR_STATUS FBR_EnumerateAllValues(int64_t key, std::vector<WString>& names) override;
    FBR_STATUS FBR_EnumerateAllKeys(int64_t key, std::vector<WString>& names) override;
    FBR_STATUS FBR_GetKeySecurityString(int64_t key, WChar* buffer, uint32_t* bufferChars) override;
    FBR_STATUS FBR_SetKeySecurityString(int64_t key, const WChar* sddl) override;

    // For those within who need more than the interface gives.
    FsStoreContext* Context() const { return context_; }

  private:
    FsStoreContext* context_ = nullptr;  // until slot 1 has succeeded
};
