// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsValues.h"

#include "FS_Library_DLL/keystore/FsEngineStatus.h"
#include "FS_Library_DLL/keystore/FsFiles.h"
#include "FS_Library_DLL/keystore/FsLookup.h"
#include "FS_Library_DLL/keystore/FsOperation.h"
#include "FS_Library_DLL/keystore/FsTrace.h"

using storage::FileHandle;

namespace {

FBR_STATUS WriteRecord(FileHandle* file, uint32_t type, const void* data, uint64_t size,
                       FsStoreContext* context) {
    const FsValueHeader header{type, static_cast<uint32_t>(size)};
    uint64_t done = 0;
    const FBR_STATUS status = FS_WriteFileEx(file, &header, sizeof header, &done, true, context);
    if (status != FSSTATUS_SUCCESS) return status;
    return FS_WriteFileEx(file, data, size, &done, false, context);
}

// A null `size` fails both reads, but a question for the size with nowhere to put it does no harm
// and succeeds.
FBR_STATUS ReadRecord(FileHandle* file, void* buffer, uint64_t bufferSize, uint64_t* size,
                      uint32_t* type, FsStoreContext* context) {
    FsValueHeader header{0, 0};
    const FBR_STATUS status = FS_ReadFileEx(file, &header, sizeof header, size, true, context);
    if (status != FSSTATUS_SUCCESS) header.size = 0;
    if (status == FSSTATUS_SUCCESS && type != nullptr) *type = header.type;
    if (size != nullptr) *size = header.size;
    // A header that cannot be read is no empty value, and what follows it is not its data.
    if (status != FSSTATUS_SUCCESS && size != nullptr) return status;
    if (buffer == nullptr) return header.size != 0 ? FSSTATUS_BUFFER_OVERFLOW : FSSTATUS_SUCCESS;
    return FS_ReadFileEx(file, buffer, bufferSize, size, false, context);
}

// The short way, where nobody looks at the steps of the long one. True when it came to an end.
bool PutValue(int64_t key, const WChar* name, uint32_t type, const void* data, uint64_t size,
              FsStoreContext* context, FBR_STATUS* status) {
    if (g_switches.trace || !FsHasOwnEngine() || size > storage::kMostPutBytes ||
        (data == nullptr && size != 0))
        return false;
    const FsValueHeader header{type, static_cast<uint32_t>(size)};
    const storage::Status code =
        FsPutFile(key, name, {&header, sizeof header, data, header.size}, context);
    *status = FsStatusFromEngine(code);
    return code != storage::kNotPlain;
}

FBR_STATUS SetValue(int64_t key, const WChar* name, uint32_t type, const void* data, uint64_t size,
                    FsStoreContext* context) {
    FileHandle* file = nullptr;
    FBR_STATUS status = FS_CreateFileEx(key, name, &file, context);
    if (status != FSSTATUS_SUCCESS && status != FSSTATUS_ALREADY_EXISTS) return status;
    status = WriteRecord(file, type, data, size, context);
    if (file != nullptr) FS_CloseFileEx(file, context);
    return status;
}

FBR_STATUS QueryValue(int64_t key, const WChar* name, void* buffer, uint64_t bufferSize,
                      uint64_t* size, uint32_t* type, FsStoreContext* context) {
    FileHandle* file = nullptr;
    FBR_STATUS status = FS_OpenFileEx(key, name, &file, context);
    if (status != FSSTATUS_SUCCESS) return status;
    status = ReadRecord(file, buffer, bufferSize, size, type, context);
    FS_CloseFileEx(file, context);
    return status;
}

FBR_STATUS DeleteValue(int64_t key, const WChar* name, FsStoreContext* context) {
    FileHandle* file = nullptr;
    FBR_STATUS status = FS_OpenFileEx(key, name, &file, context);
    if (status != FSSTATUS_SUCCESS) return status;
    status = FS_DeleteFileEx(&file, context);
    if (file != nullptr) FS_CloseFileEx(file, context);
    return status;
}

// Runs an operation of several steps, each with a status of its own, in a frame that speaks the
// engine's codes.
template <class Frame, class Operation>
FBR_STATUS Framed(FsStoreContext* context, Frame frame, Operation operation) {
    if (context == nullptr) return operation();
    FBR_STATUS status = FSSTATUS_SUCCESS;
    bool ran = false;
    const storage::Status code = frame(context, [&]() -> storage::Status {
        ran = true;
        status = operation();
        if (status == FSSTATUS_SUCCESS) return storage::kOk;
        return status == FSSTATUS_FILE_CORRUPT ? storage::kCorrupt : storage::kInternal;
    });
    const bool told = ran && status != FSSTATUS_SUCCESS && code != storage::kSharing;
    return told ? status : FsStatusFromEngine(code);
}

template <class Operation>
FBR_STATUS Read(FsStoreContext* context, Operation operation) {
    return Framed(
        context, [](FsStoreContext* store, auto run) { return FsRead(store, run); }, operation);
}

template <class Operation>
FBR_STATUS Change(FsStoreContext* context, Operation operation) {
    return Framed(
        context, [](FsStoreContext* store, auto run) { return FsChange(store, run); }, operation);
}

}  // namespace

FBR_STATUS FsSetValue(int64_t key, const WChar* name, uint32_t type, const void* data,
                      uint64_t size, FsStoreContext* context) {
    // Without a write lock the operation itself refuses, and takes none for that.
    if (context == nullptr || !FsMayWrite(context))
        return SetValue(key, name, type, data, size, context);
    return Change(context, [&] {
        FBR_STATUS status = FSSTATUS_SUCCESS;
        const bool done = PutValue(key, name, type, data, size, context, &status);
        return done ? status : SetValue(key, name, type, data, size, context);
    });
}

FBR_STATUS FsQueryValue(int64_t key, const WChar* name, void* buffer, uint64_t bufferSize,
                        uint64_t* size, uint32_t* type, FsStoreContext* context) {
    FBR_STATUS status = FSSTATUS_SUCCESS;
    if (context != nullptr && size != nullptr &&
        FsLookUpValue(key, name, buffer, bufferSize, size, type, context, &status))
        return status;
    return Read(context,
                [&] { return QueryValue(key, name, buffer, bufferSize, size, type, context); });
}

FBR_STATUS FsDeleteValue(int64_t key, const WChar* name, FsStoreContext* context) {
    const auto operation = [&] { return DeleteValue(key, name, context); };
    // Without a write lock it only looks whether there is such a value before it refuses.
    if (context == nullptr || !FsMayWrite(context)) return Read(context, operation);
    return Change(context, operation);
}
