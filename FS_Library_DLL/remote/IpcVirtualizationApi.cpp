// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/remote/IpcVirtualizationApi.h"

#include <cstring>
#include <new>

#include "Shared/logging/Logger.h"
#include "platform/Heap.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/IpcVirtualizationApi"

using ipc::Request;
using ipc::WireReader;
using ipc::WireWriter;

namespace {

WireWriter Begin(Request code) {
    return WireWriter(static_cast<uint32_t>(code));
}

WireWriter BeginWithKey(Request code, int64_t key) {
    WireWriter request = Begin(code);
    request.U64(static_cast<uint64_t>(key));
    return request;
}

// Replies that hold nothing but the status.
struct NoFields {
    void operator()(FBR_STATUS) const {}
};

WChar* CopyToHeap(const WString& text) {
    const size_t bytes = (text.size() + 1) * sizeof(WChar);
    auto* copy = static_cast<WChar*>(platform::HeapAllocateZeroed(bytes));
    if (copy != nullptr) std::memcpy(copy, text.data(), bytes - sizeof(WChar));
    return copy;
}

}  // namespace

bool CIpcVirtualizationApiClient::SendAndReceive(const std::vector<uint8_t>& request) {
    if (request.size() > ipc::kLargestPayload) return false;
    if (!pipe_.IsConnected() && pipe_.Connect() != 0) return false;
    const auto size = static_cast<uint32_t>(request.size());
    platform::Error error = pipe_.WritePacket(request.data(), size);
    if (error == platform::kErrorBrokenPipe || error == platform::kErrorPipeNotConnected) {
        pipe_.Close();
        // The server may have been started anew. It knows nothing of this store; what it says to
        // the request is the answer.
        if (pipe_.Connect() != 0) return false;
        error = pipe_.WritePacket(request.data(), size);
    }
    return error == 0 && pipe_.ReadPacket(&reply_) == 0;
}

template <class Read>
FBR_STATUS CIpcVirtualizationApiClient::Exchange(Request code, WireWriter& request, Read read) {
    try {
        const std::lock_guard guard(lock_);
        if (!SendAndReceive(request.Payload())) return FSSTATUS_FAILED;
        WireReader reply(reply_);
        if (reply.U32() != static_cast<uint32_t>(code) + 1) return FSSTATUS_FAILED;
        auto deliver = read(reply);
        const auto status = static_cast<FBR_STATUS>(reply.U32());
        if (!reply.Good()) return FSSTATUS_FAILED;
        deliver(status);
        return status;
    } catch (const std::bad_alloc&) {
        return FSSTATUS_FAILED;
    }
}

FBR_STATUS CIpcVirtualizationApiClient::StatusOnly(Request code, WireWriter& request) {
    return Exchange(code, request, [](WireReader&) { return NoFields(); });
}

FBR_STATUS CIpcVirtualizationApiClient::KeyReply(Request code, WireWriter& request, int64_t* key) {
    return Exchange(code, request, [key](WireReader& reply) {
        const auto found = static_cast<int64_t>(reply.U64());
        return [key, found](FBR_STATUS) {
            if (key != nullptr) *key = found;
        };
    });
}

FBR_STATUS CIpcVirtualizationApiClient::NumberReply(Request code, uint32_t* number) {
    WireWriter request = Begin(code);
    return Exchange(code, request, [number](WireReader& reply) {
        const uint32_t found = reply.U32();
        return [number, found](FBR_STATUS) {
            if (number != nullptr) *number = found;
        };
    });
}

FBR_STATUS CIpcVirtualizationApiClient::NameReply(Request code, WireWriter& request, WChar** name) {
    return Exchange(code, request, [name](WireReader& reply) {
        return [name, text = reply.String()](FBR_STATUS) {
            if (name != nullptr) *name = CopyToHeap(text);
        };
    });
}

FBR_STATUS CIpcVirtualizationApiClient::NamesReply(Request code, int64_t key,
                                                   std::vector<WString>& names) {
    WireWriter request = BeginWithKey(code, key);
    return Exchange(code, request, [&names](WireReader& reply) {
        std::vector<WString> found;
        for (uint32_t left = reply.U32(); left > 0 && reply.Good(); --left)
            found.push_back(reply.String());
        return [&names, found = std::move(found)](FBR_STATUS) mutable { names = std::move(found); };
    });
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_InitialiseEx(const WString& path, FBR_METHOD method) {
    WireWriter request = Begin(Request::InitialiseEx);
    request.String(path).U32(static_cast<uint32_t>(method));
    return StatusOnly(Request::InitialiseEx, request);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_DeInitialiseEx() {
    WireWriter request = Begin(Request::DeInitialiseEx);
    return StatusOnly(Request::DeInitialiseEx, request);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_CheckFile() {
    WireWriter request = Begin(Request::CheckFile);
    return StatusOnly(Request::CheckFile, request);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_IsCorrupted(uint32_t* corrupted) {
    return NumberReply(Request::IsCorrupted, corrupted);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_Compact(uint32_t* done) {
    return NumberReply(Request::Compact, done);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_DeleteValue(int64_t key, const WString& name) {
    WireWriter request = BeginWithKey(Request::DeleteValue, key);
    request.String(name);
    return StatusOnly(Request::DeleteValue, request);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_SetValue(int64_t key, const WString& name,
                                                     uint32_t type, const void* data,
                                                     uint64_t size) {
    if (size > ipc::kLargestPayload || (data == nullptr && size != 0)) return FSSTATUS_FAILED;
    WireWriter request = BeginWithKey(Request::SetValue, key);
    request.String(name).U32(type).U32(static_cast<uint32_t>(size));
    request.Bytes(data, static_cast<size_t>(size));
    return StatusOnly(Request::SetValue, request);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_QueryValue(int64_t key, const WString& name,
                                                       void* buffer, uint64_t bufferSize,
                                                       uint64_t* size, uint32_t* type) {
    const auto room = static_cast<uint32_t>(bufferSize);
    WireWriter request = BeginWithKey(Request::QueryValue, key);
    request.String(name).U32(room);
    return Exchange(Request::QueryValue, request, [=](WireReader& reply) {
        const uint32_t foundType = reply.U32();
        const uint32_t length = reply.U32();
        const uint32_t count = reply.U32();
        // More than was asked for is no answer; reading on past the end fails the exchange.
        const auto data = reply.Bytes(count <= room ? count : reply.Left() + 1);
        return [=](FBR_STATUS) {
            if (type != nullptr) *type = foundType;
            if (size != nullptr) *size = length;
            if (buffer != nullptr && !data.empty()) std::memcpy(buffer, data.data(), data.size());
        };
    });
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_CreateDirEx(int64_t parent, const WString& name,
                                                        FBR_CREATEOPTIONS options, int64_t* key) {
    WireWriter request = BeginWithKey(Request::CreateDirEx, parent);
    request.U32(static_cast<uint32_t>(options)).String(name);
    return KeyReply(Request::CreateDirEx, request, key);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_OpenDirEx(int64_t parent, const WString& name,
                                                      int64_t* key) {
    WireWriter request = BeginWithKey(Request::OpenDirEx, parent);
    request.String(name);
    return KeyReply(Request::OpenDirEx, request, key);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_DeleteDirEx(int64_t key) {
    WireWriter request = BeginWithKey(Request::DeleteDirEx, key);
    return StatusOnly(Request::DeleteDirEx, request);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_DeleteDirNamedEx(const WString& name) {
    WireWriter request = Begin(Request::DeleteDirNamedEx);
    request.String(name);
    return StatusOnly(Request::DeleteDirNamedEx, request);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_RenameDirEx(int64_t key, const WString& newName) {
    WireWriter request = BeginWithKey(Request::RenameDirEx, key);
    request.String(newName);
    return StatusOnly(Request::RenameDirEx, request);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_CloseDirEx(int64_t key) {
    WireWriter request = BeginWithKey(Request::CloseDirEx, key);
    return StatusOnly(Request::CloseDirEx, request);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_EnumIntFileEx(int64_t key, uint32_t index,
                                                          WChar** name) {
    WireWriter request = BeginWithKey(Request::EnumIntFileEx, key);
    request.U32(index);
    return NameReply(Request::EnumIntFileEx, request, name);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_EnumIntDirEx(int64_t key, uint32_t index,
                                                         WChar** name) {
    WireWriter request = BeginWithKey(Request::EnumIntDirEx, key);
    request.U32(index);
    return NameReply(Request::EnumIntDirEx, request, name);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_GetName_DirEx(int64_t key, WChar** name) {
    ZRFS_LOG(Varnhold::Hob::Detail::kInformation, "CIpcVirtualizationApiClient::FBR_GetName_DirEx",
             "[{}]", key);
    WireWriter request = BeginWithKey(Request::GetName_DirEx, key);
    return NameReply(Request::GetName_DirEx, request, name);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_GetFullName_DirEx(int64_t key, WChar** name) {
    ZRFS_LOG(Varnhold::Hob::Detail::kInformation,
             "CIpcVirtualizationApiClient::FBR_GetFullName_DirEx", "[{}]", key);
    WireWriter request = BeginWithKey(Request::GetFullName_DirEx, key);
    return NameReply(Request::GetFullName_DirEx, request, name);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_DuplicateDirHandleEx(int64_t key, int64_t* newKey) {
    WireWriter request = BeginWithKey(Request::DuplicateDirHandleEx, key);
    return KeyReply(Request::DuplicateDirHandleEx, request, newKey);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_GetDirTimesEx(int64_t key, FBR_SYSTEMTIME* time) {
    WireWriter request = BeginWithKey(Request::GetDirTimesEx, key);
    return Exchange(Request::GetDirTimesEx, request, [time](WireReader& reply) {
        // They travel in the order of their names.
        FBR_SYSTEMTIME found{};
        for (uint16_t* field : {&found.wDay, &found.wDayOfWeek, &found.wHour, &found.wMilliseconds,
                                &found.wMinute, &found.wMonth, &found.wSecond, &found.wYear})
            *field = reply.U16();
        return [time, found](FBR_STATUS) {
            if (time != nullptr) *time = found;
        };
    });
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_EnumerateAllValues(int64_t key,
                                                               std::vector<WString>& names) {
    return NamesReply(Request::EnumerateAllValues, key, names);
}

FBR_STATUS CIpcVirtualizationApiClient::FBR_EnumerateAllKeys(int64_t key,
                                                             std::vector<WString>& names) {
    return NamesReply(Request::EnumerateAllKeys, key, names);
}
