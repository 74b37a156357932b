// SPDX-License-Identifier: MIT
// The store behind a server at the far end of a named pipe.
#pragma once

#include "FS_Library_DLL/IFSInterface.h"
#include "FS_Library_DLL/remote/IpcVirtualizationApi.h"

// Forwards every operation as one request; the locks succeed here, with nothing sent, and the
// security strings are not implemented. `method` travels to the server as it is. Any thread.
class FsIpcImpl : public IFSInterface {
  public:
    FsIpcImpl(FBR_METHOD method, const WString& server);

    FBR_STATUS FBR_InitialiseEx(const WChar* path) override;
    FBR_STATUS FBR_DeInitialiseEx() override { return client_.FBR_DeInitialiseEx(); }
    FBR_STATUS FBR_CheckFile() override { return client_.FBR_CheckFile(); }
    FBR_STATUS FBR_IsCorrupted(uint32_t* corrupted) override {
        return client_.FBR_IsCorrupted(corrupted);
    }
    FBR_STATUS FBR_Compact(uint32_t* done) override { return client_.FBR_Compact(done); }
    FBR_STATUS FBR_GetLockEx(uint32_t) override { return FSSTATUS_SUCCESS; }
    FBR_STATUS FBR_ReleaseLockEx(uint32_t) override { return FSSTATUS_SUCCESS; }
    FBR_STATUS FBR_GetLockTypeEx(uint32_t*) override { return FSSTATUS_SUCCESS; }
    FBR_STATUS FBR_DeleteValue(int64_t key, const WChar* name) override {
        return client_.FBR_DeleteValue(key, name);
    }
    FBR_STATUS FBR_SetValue(int64_t key, const WChar* name, uint32_t type, const void* data,
                            uint64_t size) override {
        return client_.FBR_SetValue(key, name, type, data, size);
    }
    FBR_STATUS FBR_QueryValue(int64_t key, const WChar* name, void* buffer, uint64_t bufferSize,
                              uint64_t* size, uint32_t* type) override {
        return client_.FBR_QueryValue(key, name, buffer, bufferSize, size, type);
    }
    FBR_STATUS FBR_CreateDirEx(int64_t parent, const WChar* name, FBR_CREATEOPTIONS options,
                               int64_t* key) override {
        return client_.FBR_CreateDirEx(parent, name, options, key);
    }
    FBR_STATUS FBR_OpenDirEx(int64_t parent, const WChar* name, int64_t* key) override {
        return client_.FBR_OpenDirEx(parent, name, key);
    }
    FBR_STATUS FBR_DeleteDirEx(int64_t key) override { return client_.FBR_DeleteDirEx(key); }
    FBR_STATUS FBR_DeleteDirNamedEx(const WChar* name) override {
        return client_.FBR_DeleteDirNamedEx(name);
    }
    FBR_STATUS FBR_RenameDirEx(int64_t key, const WChar* newName) override {
        return client_.FBR_RenameDirEx(key, newName);
    }
    FBR_STATUS FBR_CloseDirEx(int64_t key) override { return client_.FBR_CloseDirEx(key); }
    FBR_STATUS FBR_EnumIntFileEx(int64_t key, uint32_t index, WChar** name) override {
        return client_.FBR_EnumIntFileEx(key, index, name);
    }
    FBR_STATUS FBR_EnumIntDirEx(int64_t key, uint32_t index, WChar** name) override {
        return client_.FBR_EnumIntDirEx(key, index, name);
    }
    FBR_STATUS FBR_GetName_DirEx(int64_t key, WChar** name) override {
        return client_.FBR_GetName_DirEx(key, name);
    }
    FBR_STATUS FBR_GetFullName_DirEx(int64_t key, WChar** name) override {
        return client_.FBR_GetFullName_DirEx(key, name);
    }
    FBR_STATUS FBR_DuplicateDirHandleEx(int64_t key, int64_t* newKey) override {
        return client_.FBR_DuplicateDirHandleEx(key, newKey);
    }
    FBR_STATUS FBR_GetDirTimesEx(int64_t key, FBR_SYSTEMTIME* time) override {
        return client_.FBR_GetDirTimesEx(key, time);
    }
    FBR_STATUS FBR_EnumerateAllValues(int64_t key, std::vector<WString>& names) override {
        return client_.FBR_EnumerateAllValues(key, names);
    }
    FBR_STATUS FBR_EnumerateAllKeys(int64_t key, std::vector<WString>& names) override {
        return client_.FBR_EnumerateAllKeys(key, names);
    }
    FBR_STATUS FBR_GetKeySecurityString(int64_t, WChar*, uint32_t*) override {
        return FSSTATUS_NOT_IMPLEMENTED;
    }
    FBR_STATUS FBR_SetKeySecurityString(int64_t, const WChar*) override {
        return FSSTATUS_NOT_IMPLEMENTED;
    }

  private:
    const FBR_METHOD method_;
    CIpcVirtualizationApiClient client_;
};
