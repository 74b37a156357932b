// SPDX-License-Identifier: MIT
// The engine's public operations: the test of the first argument, the container's lock, and the
// way to the routine that does the work.
#include "storage/StorageApi.h"

#include "storage/core/Dates.h"
#include "storage/core/PageMap.h"
#include "storage/lifecycle/Compaction.h"
#include "storage/lifecycle/ContextLife.h"
#include "storage/lifecycle/RunLock.h"
#include "storage/lifecycle/Sharing.h"
#include "storage/namespace/Handles.h"
#include "storage/namespace/Listing.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Operations.h"
#include "storage/namespace/Search.h"
#include "storage/namespace/Stream.h"

namespace storage {

namespace {

// The operations below are functions without a name, which say themselves that they need the lock;
// that the frame's container is theirs is what the analysis cannot see, so that it looks at who
// comes here, and no further.
template <class Operation>
Status RunLocked(StorageContext* container, Operation& operation)
    ZRFS_REQUIRES(container->containerLock) ZRFS_NO_ANALYSIS {
    return operation();
}

// Runs `operation` on a container under its lock.
template <class Operation>
Status OnContainer(StorageContext* container, Operation operation) {
    if (container == nullptr) return kInvalid;
    const platform::MutexGuard guard(container->containerLock);
    return RunLocked(container, operation);
}

// The same on an open container.
template <class Operation>
Status OnOpenContainer(StorageContext* container, Operation operation) {
    return OnContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        const Status status = MakeUsable(container);
        if (status != kOk) return status;
        EvictIdleObjects(container);
        return RunLocked(container, operation);
    });
}

template <class Operation>
Status OnFile(FileHandle* file, Operation operation) {
    if (file == nullptr) return kInvalid;
    const platform::MutexGuard guard(file->context->containerLock);
    return RunLocked(file->context, operation);
}

Status DeletePath(StorageContext* container, const WChar* path) {
    return OnOpenContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        return DeleteAt(container, path);
    });
}

Status SeekPosition(const FileHandle* file, int32_t offset, uint16_t origin, uint64_t* position)
    ZRFS_REQUIRES(file->context->containerLock) {
    *position = 0;
    if (file->object == nullptr) return kNoObject;
    const uint64_t distance = static_cast<uint64_t>(int64_t{offset});
    if (origin == 0) *position = distance;
    if (origin == 1) *position = file->position + distance;
    if (origin != 2) return kOk;
    uint64_t size = 0;
    const Status status = ReadSize(file->object, &size, file->object->transaction);
    *position = size + distance;
    return status;
}

Status CompactScanned(StorageContext* container, uint8_t* done, void* userData = nullptr,
                      CompactProgress progress = nullptr) ZRFS_REQUIRES(container->containerLock) {
    Status status = container->readOnly ? kReadOnly : EnterWrite(container, true);
    if (status != kOk) return status;
    if (container->knownPages == kUnknownPages) status = ScanPageMap(container, true, 0);
    if (status == kOk) status = CompactPages(container, done, userData, progress);
    LeaveWrite(container);
    return status;
}

}  // namespace

Status StorageIsCorrupted(StorageContext* container, uint8_t* corrupted) {
    return OnContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) -> Status {
        if (corrupted == nullptr) return kInvalid;
        if (!container->active) return kNotOpen;
        *corrupted = static_cast<uint8_t>(container->Super()->flags & kFlagCorrupted);
        return kOk;
    });
}

Status StorageSetCaseSensitive(StorageContext* container, uint8_t caseSensitive) {
    return OnContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        container->caseSensitive = caseSensitive != 0;
        return kOk;
    });
}

Status StorageClose(StorageContext* container) {
    if (container == nullptr) return kInvalid;
    container->containerLock.AssertAlone();
    const Status status = CloseContainer(container, Closing::Write);
    DestroyContext(container);
    return status;
}

Status StorageGetLock(StorageContext* container, int32_t lockType) {
    if (container == nullptr) return kInvalid;
    return lockType == 0 ? kInternal : GetContainerLock(container);
}

Status StorageReleaseLock(StorageContext* container, int32_t lockType) {
    if (container == nullptr) return kInvalid;
    return lockType == 0 ? kInternal : ReleaseContainerLock(container);
}

Status StorageCreateFile(StorageContext* container, const WChar* path, uint8_t wantRead,
                         uint8_t wantWrite, uint8_t denyRead, uint8_t denyWrite, uint32_t,
                         const WChar*, uint32_t, FileHandle** file, uint8_t openIfExists,
                         uint8_t truncate) {
    return OnOpenContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        if (path == nullptr || file == nullptr) return kInvalid;
        const FileAccess access{wantRead != 0, wantWrite != 0, denyRead != 0, denyWrite != 0};
        return CreateFileAt(container, path, access, openIfExists != 0, truncate != 0, file);
    });
}

Status StorageCloseFile(FileHandle* file) {
    return OnFile(file, [&]() ZRFS_REQUIRES(file->context->containerLock) {
        const Status status = CloseStream(file, true);
        FreeHandle(file);
        return status;
    });
}

Status StorageGetFileAttributes(StorageContext* container, const WChar* path,
                                uint32_t* attributes) {
    return OnOpenContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        if (path == nullptr || attributes == nullptr) return kInvalid;
        return AttributesAt(container, path, attributes);
    });
}

Status StorageOpenFile(StorageContext* container, const WChar* path, uint8_t wantRead,
                       uint8_t wantWrite, uint8_t denyRead, uint8_t denyWrite, const WChar*,
                       uint32_t, FileHandle** file) {
    return OnOpenContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        if (path == nullptr || file == nullptr) return kInvalid;
        const FileAccess access{wantRead != 0, wantWrite != 0, denyRead != 0, denyWrite != 0};
        return OpenFileAt(container, path, access, file);
    });
}

Status StorageDeleteFile(StorageContext* container, const WChar* path) {
    if (container != nullptr && path == nullptr) return kInvalid;
    return DeletePath(container, path);
}

Status StorageDeleteDirectory(StorageContext* container, const WChar* path) {
    return StorageDeleteFile(container, path);
}

Status StorageMoveFile(StorageContext* container, const WChar* oldPath, const WChar* newPath) {
    return OnOpenContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        if (oldPath == nullptr || newPath == nullptr) return kInvalid;
        return MoveAt(container, oldPath, newPath);
    });
}

Status StorageSeekFile(FileHandle* file, int32_t offset, uint16_t origin, uint32_t* position) {
    return OnFile(file, [&]() ZRFS_REQUIRES(file->context->containerLock) {
        uint64_t target = 0;
        const Status status = SeekPosition(file, offset, origin, &target);
        if (status != kOk) return status;
        file->position = target;
        if (position != nullptr) *position = static_cast<uint32_t>(target);
        return kOk;
    });
}

Status StorageReadFile(FileHandle* file, void* buffer, uint32_t count, uint32_t* done) {
    return OnFile(file, [&]() ZRFS_REQUIRES(file->context->containerLock) {
        if (done == nullptr || (buffer == nullptr && count != 0)) return kInvalid;
        return ReadStream(file, buffer, count, done);
    });
}

Status StorageWriteFile(FileHandle* file, const void* buffer, uint32_t count, uint32_t* done) {
    return OnFile(file, [&]() ZRFS_REQUIRES(file->context->containerLock) {
        if (done == nullptr || (buffer == nullptr && count != 0)) return kInvalid;
        return WriteStream(file, buffer, count, done);
    });
}

Status StorageFindFirst(StorageContext* container, StorageSearchStruct* record, const WChar* path,
                        uint32_t attributeMask, int32_t flags) {
    return OnOpenContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        if (record == nullptr || path == nullptr) return kInvalid;
        return FindFirst(container, record, path, attributeMask, static_cast<uint32_t>(flags));
    });
}

Status StorageNameAt(StorageContext* container, const WChar* pattern, uint32_t attributeMask,
                     uint32_t index, ListPlace* place, platform::WStringView* name) {
    return OnOpenContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        return NameAt(container, pattern, attributeMask, index, place, name);
    });
}

Status StorageFindNext(StorageContext* container, StorageSearchStruct* record) {
    return OnContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        return record == nullptr ? kInvalid : FindNext(container, record);
    });
}

Status StorageFindClose(StorageContext* container, StorageSearchStruct* record) {
    return OnContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        return record == nullptr ? kInvalid : FindClose(container, record);
    });
}

Status StorageGetFileTimes(StorageContext* container, const WChar* path, double* created,
                           double* modified, double* accessed) {
    return OnOpenContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        if (path == nullptr) return kInvalid;
        return TimesAt(container, path, created, modified, accessed);
    });
}

void StorageDecodeDate(double date, uint16_t* year, uint16_t* month, uint16_t* day) {
    DecodeDate(date, year, month, day);
}

void StorageDecodeTime(double date, uint16_t* hour, uint16_t* minute, uint16_t* second,
                       uint16_t* millisecond) {
    DecodeTime(date, hour, minute, second, millisecond);
}

namespace {

// The frame of open and create: a context, the log's path, `enter`, and the hand-over.
template <class Enter>
Status EnterContainer(const WChar* path, StorageContext** container, uint16_t separator,
                      uint8_t updateAccessTime, Enter enter) {
    if (container == nullptr || path == nullptr) return kInvalid;
    *container = nullptr;
    StorageContext* context = MakeContext();
    if (context == nullptr) return kNoMemory;
    context->containerLock.AssertAlone();
    WChar* logPath = MakeLogPath(path);
    Status status = kNoMemory;
    if (logPath != nullptr) {
        if (separator != 0) context->separator = separator;
        context->updateAccessTime = updateAccessTime != 0;
        status = enter(context, logPath);
    }
    platform::HeapRelease(logPath);
    if (status == kOk) {
        *container = context;
    } else {
        DestroyContext(context);
    }
    return status;
}

}  // namespace

Status StorageOpen(const WChar* path, StorageContext** container, uint16_t separator, void*,
                   uint8_t updateAccessTime) {
    return EnterContainer(path, container, separator, updateAccessTime,
                          [&](StorageContext* context, const WChar* logPath) {
                              context->containerLock.AssertAlone();
                              return OpenContainer(context, path, logPath);
                          });
}

Status StorageCreate(const WChar* path, uint8_t overwrite, uint32_t pageSize, const WChar* banner,
                     StorageContext** container, uint16_t separator, void*,
                     uint8_t updateAccessTime) {
    return EnterContainer(path, container, separator, updateAccessTime,
                          [&](StorageContext* context, const WChar* logPath) {
                              context->containerLock.AssertAlone();
                              return FormatContainer(context, path, logPath, overwrite != 0,
                                                     pageSize, banner);
                          });
}

Status StorageSetAutoCompact(StorageContext* container, uint32_t percent) {
    return OnContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        container->autoCompactPercent = percent;
        return kOk;
    });
}

Status StorageIsDirectoryEmpty(StorageContext* container, const WChar* path, uint8_t* empty) {
    return OnOpenContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        if (path == nullptr || empty == nullptr) return kInvalid;
        return IsDirectoryEmptyAt(container, path, empty);
    });
}

Status StorageCreateDirectory(StorageContext* container, const WChar* path) {
    return OnOpenContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        return path == nullptr ? kInvalid : CreateDirectoryAt(container, path);
    });
}

Status StorageGetFileId(FileHandle* file, uint32_t* fileId) {
    const platform::MutexGuard guard(file->context->containerLock);
    *fileId = file->object->fileId;
    return kOk;
}

Status StorageCompact(StorageContext* container, uint8_t* done) {
    return OnOpenContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
        return CompactScanned(container, done);
    });
}

Status StorageCompactFile(const WChar* path, void* userData, CompactProgress progress) {
    if (path == nullptr) return kInvalid;
    StorageContext* container = nullptr;
    Status status = StorageOpen(path, &container, '\\', nullptr, 0);
    if (status != kOk) return status;
    status = LockContainerForRun(container);
    if (status == kOk) {
        status = OnOpenContainer(container, [&]() ZRFS_REQUIRES(container->containerLock) {
            return CompactScanned(container, nullptr, userData, progress);
        });
        ReleaseContainerLock(container);
    }
    const Status closed = StorageClose(container);
    return status == kOk ? closed : status;
}

StorageFunctionTable OwnFunctions() {
    return {
        StorageIsCorrupted,     StorageSetCaseSensitive,  StorageClose,
        StorageGetLock,         StorageReleaseLock,       StorageCreateFile,
        StorageCloseFile,       StorageGetFileAttributes, StorageOpenFile,
        StorageDeleteFile,      StorageMoveFile,          StorageSeekFile,
        StorageReadFile,        StorageWriteFile,         StorageFindFirst,
        StorageFindNext,        StorageFindClose,         StorageGetFileTimes,
        StorageDecodeDate,      StorageDecodeTime,        StorageOpen,
        StorageCreate,          StorageSetAutoCompact,    StorageIsDirectoryEmpty,
        StorageDeleteDirectory, StorageCreateDirectory,   StorageGetFileId,
        StorageCompact,
    };
}

StorageFunctionTable g_storageFunctions = OwnFunctions();
std::atomic<bool> g_hasOwnFunctions{true};

void SetFunctions(const StorageFunctionTable& table) {
    const StorageFunctionTable own = OwnFunctions();
    std::memcpy(&g_storageFunctions, &table, sizeof table);
    g_hasOwnFunctions = std::memcmp(&g_storageFunctions, &own, sizeof own) == 0;
}

}  // namespace storage
