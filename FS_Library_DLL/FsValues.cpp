#include "FS_Library_DLL/FsValues.h"

#include "FS_Library_DLL/FsFiles.h"

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

}  // namespace

FBR_STATUS FsSetValue(int64_t key, const WChar* name, uint32_t type, const void* data,
                      uint64_t size, FsStoreContext* context) {
    FileHandle* file = nullptr;
    FBR_STATUS status = FS_CreateFileEx(key, name, &file, context);
    if (status != FSSTATUS_SUCCESS && status != FSSTATUS_ALREADY_EXISTS) return status;
    status = WriteRecord(file, type, data, size, context);
    if (file != nullptr) FS_CloseFileEx(file, context);
    return status;
}

FBR_STATUS FsQueryValue(int64_t key, const WChar* name, void* buffer, uint64_t bufferSize,
                        uint64_t* size, uint32_t* type, FsStoreContext* context) {
    FileHandle* file = nullptr;
    FBR_STATUS status = FS_OpenFileEx(key, name, &file, context);
    if (status != FSSTATUS_SUCCESS) return status;
    status = ReadRecord(file, buffer, bufferSize, size, type, context);
    FS_CloseFileEx(file, context);
    return status;
}

FBR_STATUS FsDeleteValue(int64_t key, const WChar* name, FsStoreContext* context) {
    FileHandle* file = nullptr;
    FBR_STATUS status = FS_OpenFileEx(key, name, &file, context);
    if (status != FSSTATUS_SUCCESS) return status;
    status = FS_DeleteFileEx(&file, context);
    if (file != nullptr) FS_CloseFileEx(file, context);
    return status;
}
