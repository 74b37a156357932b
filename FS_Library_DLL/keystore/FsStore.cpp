// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsStore.h"

#include <atomic>
#include <new>
#include <string>

#include "FS_Library_DLL/keystore/FsEngineStatus.h"
#include "FS_Library_DLL/keystore/FsFiles.h"
#include "FS_Library_DLL/keystore/FsKeys.h"
#include "FS_Library_DLL/keystore/FsLocks.h"
#include "FS_Library_DLL/keystore/FsLookup.h"
#include "FS_Library_DLL/keystore/FsOperation.h"
#include "FS_Library_DLL/keystore/FsTrace.h"
#include "FS_Library_DLL/keystore/FsVolatileKeys.h"
#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/HostPath.h"

using storage::FileHandle;
using storage::Status;
using storage::StorageContext;

namespace {

constexpr const WChar* kVersionName = WTEXT("FBRVersion");
constexpr uint32_t kDwordType = 4;

FsStoreContext* NewContext() {
    void* memory = platform::HeapAllocateZeroed(sizeof(FsStoreContext));
    return memory != nullptr ? new (memory) FsStoreContext : nullptr;
}

void DestroyContext(FsStoreContext* context) {
    FsFreeLockStack(context);
    context->~FsStoreContext();
    platform::HeapRelease(context);
}

bool OpenRoot(int64_t* root, FsStoreContext* context) {
    const FBR_STATUS status = FS_CreateDirEx(0, WTEXT("\\"), FSCREATEOPTIONS_NONE, root, context);
    return status == FSSTATUS_SUCCESS || status == FSSTATUS_ALREADY_EXISTS;
}

// Whole or not at all. What goes wrong in here is dropped: the store opens all the same, and the
// next opening writes the record.
void WriteVersion(int64_t root, FsStoreContext* context) {
    FsChange(context, [&]() -> Status {
        FileHandle* file = nullptr;
        if (FS_CreateFileEx(root, kVersionName, &file, context) != FSSTATUS_SUCCESS)
            return storage::kInternal;
        FBR_STATUS status = FSSTATUS_SUCCESS;
        bool fromStart = true;
        for (const uint32_t word : {kDwordType, uint32_t{sizeof(uint32_t)}, kStoreVersion}) {
            uint64_t done = 0;
            if (status == FSSTATUS_SUCCESS)
                status = FS_WriteFileEx(file, &word, sizeof word, &done, fromStart, context);
            fromStart = false;
        }
        const FBR_STATUS closed = FS_CloseFileEx(file, context);
        return status == FSSTATUS_SUCCESS && closed == FSSTATUS_SUCCESS ? storage::kOk
                                                                        : storage::kInternal;
    });
}

// The third word of the record; the others are not looked at.
uint32_t ReadVersion(FileHandle* file, FsStoreContext* context) {
    uint32_t word = 0;
    for (int i = 0; i < 3; ++i) {
        uint64_t done = 0;
        word = 0;
        FS_ReadFileEx(file, &word, sizeof word, &done, i == 0, context);
    }
    return word;
}

// Looked for and written as one change: two that open a container without a record write one.
void WriteMissingVersion(int64_t root, FsStoreContext* context) {
    FsChange(context, [&]() -> Status {
        FileHandle* file = nullptr;
        if (FS_OpenFileEx(root, kVersionName, &file, context) == FSSTATUS_SUCCESS)
            FS_CloseFileEx(file, context);
        else
            WriteVersion(root, context);
        return storage::kOk;
    });
}

// A record that is there and cannot be opened is taken for a good one, and is not written over: it
// may be readable the next time.
uint32_t CheckVersion(FsStoreContext* context) {
    int64_t root = 0;
    if (!OpenRoot(&root, context)) return 0;
    uint32_t version = 0;
    uint64_t size = 0;
    FBR_STATUS status = FSSTATUS_SUCCESS;
    if (FsLookUpValue(root, kVersionName, &version, sizeof version, &size, nullptr, context,
                      &status) &&
        status == FSSTATUS_SUCCESS) {
        FS_CloseDirEx(root, context);
        return version;
    }
    FsRead(context, [&]() -> Status {
        FileHandle* file = nullptr;
        version = kStoreVersion;
        status = FS_OpenFileEx(root, kVersionName, &file, context);
        if (status != FSSTATUS_SUCCESS)
            return status == FSSTATUS_FILE_CORRUPT ? storage::kCorrupt : storage::kOk;
        version = ReadVersion(file, context);
        FS_CloseFileEx(file, context);
        return storage::kOk;
    });
    if (status == FSSTATUS_NOT_FOUND) WriteMissingVersion(root, context);
    FS_CloseDirEx(root, context);
    return version;
}

Status OpenExisting(const WChar* path, FsStoreContext* context) {
    const Status code =
        FsEngine().StorageOpen(path, &context->container, kPathSeparator, nullptr, 0);
    if (code != storage::kOk) return code;
    return CheckVersion(context) == kStoreVersion ? storage::kOk : storage::kVersion;
}

Status CreateStore(const WChar* path, FsStoreContext* context) {
    const Status code = FsEngine().StorageCreate(path, 0, kNewPageSize, nullptr,
                                                 &context->container, kPathSeparator, nullptr, 0);
    if (code != storage::kOk) return code;
    FsEngine().StorageSetAutoCompact(context->container, 0);
    int64_t root = 0;
    if (OpenRoot(&root, context)) {
        WriteVersion(root, context);
        FS_CloseDirEx(root, context);
    }
    return storage::kOk;
}

// A name of its own in the folder of `path`, short, so that it fits wherever that fits.
WString NameBeside(const WChar* path) {
    static std::atomic<uint32_t> count{0};
    const WString text(path);
    size_t folder = text.size();
    while (folder > 0 && text[folder - 1] != '/' && text[folder - 1] != platform::kHostSeparator)
        --folder;
    const std::string name = ".fbr-" + std::to_string(platform::ProcessId()) + "-" +
                             std::to_string(platform::PerformanceCounter() & 0xFFFFFF) + "-" +
                             std::to_string(count++);
    return text.substr(0, folder) + platform::FromUtf8(name);
}

// Made and stamped under another name, so that others see no store or a whole one; a failure on
// the way leaves nothing behind. Who comes second opens the store of the one who was first.
Status MakeStoreAt(const WChar* path, const WString& beside, FsStoreContext* context) {
    Status code = CreateStore(beside.c_str(), context);
    const bool made = context->container != nullptr;
    if (made) {
        const Status closed = FsEngine().StorageClose(context->container);
        context->container = nullptr;
        if (code == storage::kOk) code = closed;
    }
    if (code == storage::kOk) {
        const platform::Error error = platform::RenameNew(beside.c_str(), path, false);
        const bool lost =
            error == platform::kErrorAlreadyExists || error == platform::kErrorFileExists;
        if (error == platform::kErrorSuccess) return OpenExisting(path, context);
        if (!lost) code = static_cast<Status>(error);
    }
    platform::DeleteFileByPath(beside.c_str());
    return code == storage::kOk ? OpenExisting(path, context) : code;
}

Status MakeStore(const WChar* path, FsStoreContext* context) {
    if (!FsHasOwnEngine()) return CreateStore(path, context);
    WString beside;
    try {
        beside = NameBeside(path);
    } catch (const std::bad_alloc&) {
        return storage::kNoMemory;
    }
    return MakeStoreAt(path, beside, context);
}

Status CreateOrOpen(const WChar* path, FsStoreContext* context) {
    if (path[0] == 0) return storage::kInvalid;
    // What may not be looked at may still be opened.
    const platform::Error error = platform::ProbePath(path);
    const bool missing = error != platform::kErrorSuccess && error != platform::kErrorAccessDenied;
    return missing ? MakeStore(path, context) : OpenExisting(path, context);
}

Status Initialise(const WChar* path, FsStoreContext** out) {
    FsStoreContext* context = NewContext();
    if (context == nullptr) return storage::kNoMemory;
    context->currentLock = kWriteLockToo;  // for the version record
    *out = context;
    Status code = CreateOrOpen(path, context);
    context->currentLock = kNoLock;
    if (code == storage::kOk) code = FsEngine().StorageSetCaseSensitive(context->container, 0);
    if (code == storage::kOk) return code;
    // A container that did open, with a version that is not ours, is not closed: its file stays
    // open until the process ends.
    if (context->container != nullptr) platform::HeapLeaveToTheEnd(context->container);
    DestroyContext(context);
    *out = nullptr;
    return code;
}

}  // namespace

FBR_STATUS FS_InitialiseEx(const WChar* path, FsStoreContext** out) {
    constexpr const char* name = "FS_InitialiseEx";
    FsTraceLine(kTraceScope, name, "[ENTER]");
    Status code = storage::kInvalid;
    if (path != nullptr && out != nullptr) {
        if (g_switches.trace && FS_OpenTraceFile())
            FsTraceLine(kTraceScope, name, "[ENTER] - after logging enabled");
        code = Initialise(path, out);
    }
    const FBR_STATUS status = FsStatusFromEngine(code);
    FsTraceLine(kTraceScope, name, "[EXIT]");
    return status;
}

FBR_STATUS FsCloseStore(FsStoreContext* context) {
    if (context == nullptr) return FSSTATUS_INVALID_PARAMETER;
    Status code = storage::kOk;
    {
        const FsGuard guard(context->lock);
        FsDeleteVolatileKeys(context);
        code = FsEngine().StorageClose(context->container);
        context->container = nullptr;
        context->handles.Clear();
        FS_CloseTraceFile();
    }
    DestroyContext(context);
    return FsStatusFromEngine(code);
}
