// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsFiles.h"

#include "FS_Library_DLL/ValueName.h"
#include "FS_Library_DLL/keystore/FsCollisions.h"
#include "FS_Library_DLL/keystore/FsFrame.h"
#include "FS_Library_DLL/keystore/FsKeys.h"
#include "FS_Library_DLL/keystore/FsNames.h"
#include "FS_Library_DLL/keystore/FsOperation.h"
#include "FS_Library_DLL/keystore/FsTrace.h"
#include "storage/namespace/Objects.h"

using storage::FileHandle;
using storage::Status;

namespace {

// The plain path of a value; kInternal for what is no open key. The caller holds the store's lock.
Status ValuePath(int64_t key, WStringView stored, FsStoreContext* context, FsText* path)
    ZRFS_REQUIRES(context->lock) {
    const FsHandleEntry* entry = context->handles.FindKey(key);
    if (entry == nullptr || !FS_JoinPath(entry->Path(), stored, path)) return storage::kInternal;
    return storage::kOk;
}

Status CreateEngineFile(const WChar* path, FileHandle** file, FsStoreContext* context) {
    return FsEngine().StorageCreateFile(context->container, path, 1, 1, 0, 0, 0, WTEXT(""), 0, file,
                                        1, 1);
}

Status OpenEngineFile(const WChar* path, FileHandle** file, FsStoreContext* context) {
    return FsEngine().StorageOpenFile(context->container, path, 1, 1, 0, 0, WTEXT(""), 0, file);
}

void CloseAndClear(FileHandle** file) {
    if (*file != nullptr) FsEngine().StorageCloseFile(*file);
    *file = nullptr;
}

Status AddValueHandle(int64_t key, FileHandle** file, WStringView path, FsStoreContext* context)
    ZRFS_REQUIRES(context->lock) {
    if (context->handles.Add(key, *file, FsHandleKind::Value, path) != nullptr) return storage::kOk;
    CloseAndClear(file);
    return storage::kInternal;
}

// Where the key is gone that a value had moved aside for (a repair may have to give a key up), the
// value is still found, at its marked path.
bool IsLeftAside(const FsText& path, FsText* marked, FsStoreContext* context) {
    bool isKey = false;
    return FsHasOwnEngine() && FS_CollisionPath(path.View(), marked) &&
           FsIsKey(marked->Text(), context, &isKey) == storage::kOk && !isKey;
}

// A new value in its place puts an end to such a one.
Status DropLeftAside(const FsText& path, FsText* marked, FsStoreContext* context) {
    if (!IsLeftAside(path, marked, context)) return storage::kOk;
    return FsEngine().StorageDeleteFile(context->container, marked->Text());
}

// Creates at the plain path, or at the marked one when a subkey has the name.
Status CreateAt(int64_t key, const FsText& path, FileHandle** file, FsStoreContext* context)
    ZRFS_REQUIRES(context->lock) {
    Status code = CreateEngineFile(path.Text(), file, context);
    FsText marked;
    if (code == storage::kOk) code = DropLeftAside(path, &marked, context);
    if (code == storage::kOk) return AddValueHandle(key, file, path.View(), context);
    if (code != storage::kExists) return code;
    if (!FS_CollisionPath(path.View(), &marked)) return storage::kInternal;
    code = CreateEngineFile(marked.Text(), file, context);
    return code == storage::kOk ? AddValueHandle(key, file, marked.View(), context) : code;
}

Status CreateValue(int64_t key, const WChar* name, FileHandle** file, FsStoreContext* context) {
    if (context == nullptr || file == nullptr) return storage::kInvalid;
    if (!FsMayWrite(context)) return storage::kSharing;
    *file = nullptr;
    FsText escaped;
    WStringView stored;
    if (!FS_EscapeName(name, FsNameSet::Value, &escaped, &stored)) return storage::kInternal;
    const FsGuard guard(context->lock);
    FsText path;
    Status code = ValuePath(key, stored, context, &path);
    if (code != storage::kOk) return code;
    code = CreateAt(key, path, file, context);
    if (code == storage::kReadOnly)
        CloseAndClear(file);
    else if (code != storage::kOk)
        FsTraceLine(kTraceFailure, "FS_CreateFileEx", "[{:X}] [{}] [{:X}] [{:X}] [{}]", key, name,
                    file, context, code);
    return code;
}

// The directory of an open key, if the short way is open to it; null otherwise.
storage::FileObject* PlainDirectory(FsHandleEntry* entry, FsStoreContext* context)
    ZRFS_REQUIRES(context->lock) {
    storage::StorageContext* container = context->container;
    container->containerLock.AssertHeld();  // by the frame
    storage::EvictIdleObjects(container);
    return entry->path == nullptr
               ? nullptr
               : storage::FindLoadedDirectory(container, entry->path, &entry->hint);
}

// The path under which an existing value of this plain path is kept. The engine's code when there
// is no entry at the plain path.
Status FindValuePath(FsText* path, FsStoreContext* context, const FsText** found, FsText* marked) {
    *found = path;
    bool isKey = false;
    const Status code = FsIsKey(path->Text(), context, &isKey);
    if (code == storage::kNotFound && IsLeftAside(*path, marked, context)) {
        *found = marked;
        return storage::kOk;
    }
    if (!isKey) return code;
    if (!FS_CollisionPath(path->View(), marked)) return storage::kInternal;
    *found = marked;
    return storage::kOk;
}

Status OpenValue(int64_t key, const WChar* name, FileHandle** file, FsStoreContext* context) {
    if (context == nullptr || file == nullptr) return storage::kInvalid;
    FsText escaped;
    WStringView stored;
    if (!FS_EscapeName(name, FsNameSet::Value, &escaped, &stored)) return storage::kInternal;
    const FsGuard guard(context->lock);
    FsText path;
    FsText marked;
    const FsText* found = nullptr;
    Status code = ValuePath(key, stored, context, &path);
    if (code == storage::kOk) code = FindValuePath(&path, context, &found, &marked);
    if (code != storage::kOk) return code;
    code = OpenEngineFile(found->Text(), file, context);
    return code == storage::kOk ? AddValueHandle(key, file, found->View(), context) : code;
}

Status CloseValue(FileHandle* file, FsStoreContext* context) {
    if (context == nullptr || file == nullptr) return storage::kInvalid;
    const FsGuard guard(context->lock);
    FsHandleEntry* entry = context->handles.FindFile(file);
    if (entry != nullptr) context->handles.Remove(entry);
    const Status code = FsEngine().StorageCloseFile(file);
    return entry != nullptr ? code : storage::kInternal;
}

// Closes the handles on a value. The engine frees a handle whatever it answers, so the entry of a
// failed close keeps no file.
Status CloseHandlesOn(WStringView path, FsStoreContext* context) ZRFS_REQUIRES(context->lock) {
    while (FsHandleEntry* entry = context->handles.FindValue(path)) {
        FileHandle* file = entry->file;
        context->handles.ForgetFile(entry);
        const Status code = file != nullptr ? FsEngine().StorageCloseFile(file) : storage::kOk;
        if (code != storage::kOk) return code;
        context->handles.Remove(entry);
    }
    return storage::kOk;
}

Status DeleteNamedValue(int64_t key, const WChar* name, FsStoreContext* context) {
    if (context == nullptr || name == nullptr || name[0] == 0) return storage::kInvalid;
    if (!FsMayWrite(context)) return storage::kSharing;
    FsText escaped;
    WStringView stored;
    if (!FS_EscapeName(name, FsNameSet::Value, &escaped, &stored) || key == 0)
        return storage::kInternal;
    const FsGuard guard(context->lock);
    FsText path;
    FsText marked;
    const FsText* found = nullptr;
    Status code = ValuePath(key, stored, context, &path);
    if (code != storage::kOk) return code;
    // A marked path that cannot be built leaves the plain one, and the engine refuses that.
    if (FindValuePath(&path, context, &found, &marked) != storage::kOk) found = &path;
    code = CloseHandlesOn(found->View(), context);
    return code == storage::kOk ? FsEngine().StorageDeleteFile(context->container, found->Text())
                                : code;
}

Status DeleteOpenValue(FileHandle** file, FsStoreContext* context) {
    if (context == nullptr || file == nullptr || *file == nullptr) return storage::kInvalid;
    FsTraceLine(kTraceScope, "FS_DeleteFileEx", "FH[{:X}]", *file);
    if (!FsMayWrite(context)) return storage::kSharing;
    const FsGuard guard(context->lock);
    FsHandleEntry* entry = context->handles.FindFile(*file);
    if (entry == nullptr) return storage::kInternal;
    // The handle is gone whatever the engine answers. The entry of a value that cannot be deleted
    // stays, with no file.
    const Status closed = FsEngine().StorageCloseFile(*file);
    context->handles.ForgetFile(entry);
    *file = nullptr;
    if (closed != storage::kOk && closed != storage::kNoObject) return closed;
    const Status code = FsEngine().StorageDeleteFile(
        context->container, entry->path != nullptr ? entry->path : WTEXT(""));
    if (code == storage::kOk) context->handles.Remove(entry);
    return code;
}

// The transfer comes with it, under one lock: another thread may be at the same file.
Status SeekToStart(FileHandle* file, bool fromStart, FsStoreContext* context)
    ZRFS_REQUIRES(context->lock) {
    uint32_t position = 0;
    return fromStart ? FsEngine().StorageSeekFile(file, 0, 0, &position) : storage::kOk;
}

Status ReadValue(FileHandle* file, void* buffer, uint64_t size, uint64_t* done, bool fromStart,
                 FsStoreContext* context) {
    if (context == nullptr || file == nullptr || buffer == nullptr || done == nullptr)
        return storage::kInvalid;
    const FsGuard guard(context->lock);
    Status code = SeekToStart(file, fromStart, context);
    if (code != storage::kOk) return code;
    uint32_t count = 0;
    code = FsEngine().StorageReadFile(file, buffer, static_cast<uint32_t>(size), &count);
    *done = code == storage::kEndOfData ? 0 : count;
    return code == storage::kEndOfData ? storage::kOk : code;
}

Status WriteValue(FileHandle* file, const void* buffer, uint64_t size, uint64_t* done,
                  bool fromStart, FsStoreContext* context) {
    if (context == nullptr || file == nullptr || (buffer == nullptr && size != 0) ||
        done == nullptr)
        return storage::kInvalid;
    if (!FsMayWrite(context)) return storage::kSharing;
    const FsGuard guard(context->lock);
    Status code = SeekToStart(file, fromStart, context);
    if (code != storage::kOk) return code;
    uint32_t count = 0;
    code = FsEngine().StorageWriteFile(file, buffer, static_cast<uint32_t>(size), &count);
    *done = count;
    return code;
}

}  // namespace

FBR_STATUS FS_CreateFileEx(int64_t key, const WChar* name, FileHandle** file,
                           FsStoreContext* context) {
    name = OrDefault(name);
    const FsFrame frame("FS_CreateFileEx", "[ENTER] DH[{:X}] DN[{}] PFH[{:X}] GH[{:X}]", key, name,
                        file, context);
    return frame.LeaveNamed(CreateValue(key, name, file, context), key, context,
                            "[EXIT] FDN[{}] DH[{:X}] DN[{}] PFH[{:X}] GH[{:X}] S[{}] D[{}]", key,
                            name, file, context);
}

FBR_STATUS FS_OpenFileEx(int64_t key, const WChar* name, FileHandle** file,
                         FsStoreContext* context) {
    name = OrDefault(name);
    const FsFrame frame("FS_OpenFileEx", "[ENTER] DH[{:X}] DN[{}] PFH[{:X}] GH[{:X}]", key, name,
                        file, context);
    return frame.LeaveNamed(OpenValue(key, name, file, context), key, context,
                            "[EXIT] FDN[{}] DH[{:X}] DN[{}] PFH[{:X}] GH[{:X}] S[{}] D[{}]", key,
                            name, file, context);
}

FBR_STATUS FS_CloseFileEx(FileHandle* file, FsStoreContext* context) {
    const FsFrame frame("FS_CloseFileEx", "[ENTER] FH[{:X}] GH[{:X}]", file, context);
    return frame.Leave(CloseValue(file, context), "[EXIT] GH[{:X}] S[{}] D[{}]", context);
}

Status FsPutFile(int64_t key, const WChar* name, const storage::FileContent& content,
                 FsStoreContext* context) {
    const FsGuard guard(context->lock);
    context->handles.PrefetchKey(key);
    FsText escaped;
    FsText marked;
    WStringView stored;
    if (!FS_EscapeName(OrDefault(name), FsNameSet::Value, &escaped, &stored) ||
        !FS_CollisionPath(stored, &marked))
        return storage::kInternal;
    FsHandleEntry* entry = context->handles.FindKey(key);
    if (entry == nullptr) return storage::kInternal;
    storage::FileObject* directory = PlainDirectory(entry, context);
    if (directory == nullptr) return storage::kNotPlain;
    directory->context->containerLock.AssertHeld();  // by the frame
    bool hasAside = false;
    Status code = storage::PutFile(directory, stored, content, marked.View(), &hasAside);
    if (code == storage::kExists)
        return storage::PutFile(directory, marked.View(), content, {}, &hasAside);
    if (code != storage::kOk || !hasAside) return code;
    FsText path;
    code = ValuePath(key, stored, context, &path);
    return code == storage::kOk ? DropLeftAside(path, &marked, context) : code;
}

FBR_STATUS FS_DeleteFileNamedEx(int64_t key, const WChar* name, FsStoreContext* context) {
    const FsFrame frame("FS_DeleteFileNamedEx", "[ENTER] DH[{:X}] DN[{}] GH[{:X}]", key, name,
                        context);
    return frame.Leave(DeleteNamedValue(key, name, context),
                       "[EXIT] DH[{:X}] DN[{}] GH[{:X}] S[{}] D[{}]", key, name, context);
}

FBR_STATUS FS_DeleteFileEx(FileHandle** file, FsStoreContext* context) {
    const FsFrame frame("FS_DeleteFileEx", "[ENTER] GH[{:X}]", context);
    return frame.Leave(DeleteOpenValue(file, context), "[EXIT] GH[{:X}] S[{}] D[{}]", context);
}

FBR_STATUS FS_ReadFileEx(FileHandle* file, void* buffer, uint64_t size, uint64_t* done,
                         bool fromStart, FsStoreContext* context) {
    const FsFrame frame("FS_ReadFileEx",
                        "[ENTER] FH[{:X}] PFB[{:X}] FBS[{}] PFRS[{:X}] FRST[{}] GH[{:X}]", file,
                        buffer, size, done, fromStart, context);
    const Status code = ReadValue(file, buffer, size, done, fromStart, context);
    return frame.Leave(
        code, "[EXIT] FH[{:X}] PFB[{:X}] FBS[{}] PFRS[{:X}] FRS[{}] FRST[{}] GH[{:X}] S[{}] D[{}]",
        file, buffer, size, done, done != nullptr ? *done : 0, fromStart, context);
}

FBR_STATUS FS_WriteFileEx(FileHandle* file, const void* buffer, uint64_t size, uint64_t* done,
                          bool fromStart, FsStoreContext* context) {
    // "PRST", and "FRST" at the end: who reads traces knows the lines by these words.
    const FsFrame frame("FS_WriteFileEx",
                        "[ENTER] FH[{:X}] PFB[{:X}] FBS[{}] PFWS[{:X}] PRST[{}] GH[{:X}]", file,
                        buffer, size, done, fromStart, context);
    const Status code = WriteValue(file, buffer, size, done, fromStart, context);
    return frame.Leave(
        code, "[EXIT] FH[{:X}] PFB[{:X}] FBS[{}] PFWS[{:X}] FWS[{}] FRST[{}] GH[{:X}] S[{}] D[{}]",
        file, buffer, size, done, done != nullptr ? *done : 0, fromStart, context);
}
