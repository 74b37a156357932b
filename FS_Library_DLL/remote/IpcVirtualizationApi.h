// SPDX-License-Identifier: MIT
// The operations of IFSInterface as requests to a server and its replies.
#pragma once

#include <mutex>
#include <vector>

#include "FS_Library_DLL/IFSInterface.h"
#include "FS_Library_DLL/remote/IocpBlockingPipeClient.h"
#include "Shared/ipc/Wire.h"

// Any number of threads may use one object; their exchanges follow one another. A method connects
// when there is no connection, and once more when the one there was is broken. Every failure of
// the transport, and every reply that does not match its request or does not hold what it says,
// is FSSTATUS_FAILED; otherwise the result is the server's status. The methods are named after the
// slots and have their arguments. docs/remote-protocol.md has the packets.
class CIpcVirtualizationApiClient {
  public:
    CIpcVirtualizationApiClient(WString pipeName, platform::Disclosure disclosure)
        : pipe_(std::move(pipeName), disclosure) {}

    FBR_STATUS FBR_InitialiseEx(const WString& path, FBR_METHOD method);
    FBR_STATUS FBR_DeInitialiseEx();
    FBR_STATUS FBR_CheckFile();
    FBR_STATUS FBR_IsCorrupted(uint32_t* corrupted);
    FBR_STATUS FBR_Compact(uint32_t* done);
    FBR_STATUS FBR_DeleteValue(int64_t key, const WString& name);
    FBR_STATUS FBR_SetValue(int64_t key, const WString& name, uint32_t type, const void* data,
                            uint64_t size);
    FBR_STATUS FBR_QueryValue(int64_t key, const WString& name, void* buffer, uint64_t bufferSize,
                              uint64_t* size, uint32_t* type);
    FBR_STATUS FBR_CreateDirEx(int64_t parent, const WString& name, FBR_CREATEOPTIONS options,
                               int64_t* key);
    FBR_STATUS FBR_OpenDirEx(int64_t parent, const WString& name, int64_t* key);
    FBR_STATUS FBR_DeleteDirEx(int64_t key);
    FBR_STATUS FBR_DeleteDirNamedEx(const WString& name);
    FBR_STATUS FBR_RenameDirEx(int64_t key, const WString& newName);
    FBR_STATUS FBR_CloseDirEx(int64_t key);
    FBR_STATUS FBR_EnumIntFileEx(int64_t key, uint32_t index, WChar** name);
    FBR_STATUS FBR_EnumIntDirEx(int64_t key, uint32_t index, WChar** name);
    FBR_STATUS FBR_GetName_DirEx(int64_t key, WChar** name);
    FBR_STATUS FBR_GetFullName_DirEx(int64_t key, WChar** name);
    FBR_STATUS FBR_DuplicateDirHandleEx(int64_t key, int64_t* newKey);
    FBR_STATUS FBR_GetDirTimesEx(int64_t key, FBR_SYSTEMTIME* time);
    // The names found take the place of what the vector held.
    FBR_STATUS FBR_EnumerateAllValues(int64_t key, std::vector<WString>& names);
    FBR_STATUS FBR_EnumerateAllKeys(int64_t key, std::vector<WString>& names);

  private:
    // One exchange: sends the request, takes the reply, and has `read` take the fields before the
    // status from it. What `read` returns is called with the status once the whole reply was
    // found to be in order; only then does anything reach the caller.
    template <class Read>
    FBR_STATUS Exchange(ipc::Request code, ipc::WireWriter& request, Read read);
    bool SendAndReceive(const std::vector<uint8_t>& request);
    FBR_STATUS StatusOnly(ipc::Request code, ipc::WireWriter& request);
    FBR_STATUS KeyReply(ipc::Request code, ipc::WireWriter& request, int64_t* key);
    FBR_STATUS NumberReply(ipc::Request code, uint32_t* number);
    FBR_STATUS NameReply(ipc::Request code, ipc::WireWriter& request, WChar** name);
    FBR_STATUS NamesReply(ipc::Request code, int64_t key, std::vector<WString>& names);

    std::mutex lock_;
    w32utils::IocpPipeClient pipe_;
    std::vector<uint8_t> reply_;
};
