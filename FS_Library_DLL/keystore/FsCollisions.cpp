// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsCollisions.h"

#include "FS_Library_DLL/keystore/FsNames.h"

using storage::Status;

namespace {

Status MoveValue(const WChar* from, const WChar* to, FsStoreContext* context)
    ZRFS_REQUIRES(context->lock) {
    const Status code = FsEngine().StorageMoveFile(context->container, from, to);
    if (code == storage::kOk) context->handles.RenameValues(from, to);
    return code;
}

}  // namespace

Status FsIsKey(const WChar* path, FsStoreContext* context, bool* isKey) {
    uint32_t attributes = 0;
    const Status code = FsEngine().StorageGetFileAttributes(context->container, path, &attributes);
    *isKey = code == storage::kOk && (attributes & kAttributeDirectory) != 0;
    return code;
}

Status FS_MoveValueAside(const WChar* path, FsStoreContext* context) {
    bool isKey = false;
    if (FsIsKey(path, context, &isKey) != storage::kOk || isKey) return storage::kOk;
    FsText marked;
    if (!FS_CollisionPath(path, &marked)) return storage::kInternal;
    return MoveValue(path, marked.Text(), context);
}

Status FS_MoveValueBack(const WChar* path, FsStoreContext* context) {
    FsText marked;
    if (!FS_CollisionPath(path, &marked)) return storage::kInternal;
    bool isKey = false;
    const Status code = FsIsKey(marked.Text(), context, &isKey);
    if (code != storage::kOk) return code == storage::kNotFound ? storage::kOk : code;
    return isKey ? storage::kOk : MoveValue(marked.Text(), path, context);
}
