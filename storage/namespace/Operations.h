// The operations that change or query the namespace, each one transaction. The caller holds
// containerLock.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

Status CreateDirectoryAt(StorageContext* context, const WChar* path)
    ZRFS_REQUIRES(context->containerLock);
struct FileAccess {
    bool wantRead, wantWrite, denyRead, denyWrite;
};
Status CreateFileAt(StorageContext* context, const WChar* path, const FileAccess& access,
                    bool openIfExists, bool truncate, FileHandle** file)
    ZRFS_REQUIRES(context->containerLock);
Status OpenFileAt(StorageContext* context, const WChar* path, const FileAccess& access,
                  FileHandle** file) ZRFS_REQUIRES(context->containerLock);
Status DeleteAt(StorageContext* context, const WChar* path) ZRFS_REQUIRES(context->containerLock);
Status MoveAt(StorageContext* context, const WChar* oldPath, const WChar* newPath)
    ZRFS_REQUIRES(context->containerLock);
Status AttributesAt(StorageContext* context, const WChar* path, uint32_t* attributes)
    ZRFS_REQUIRES(context->containerLock);
Status TimesAt(StorageContext* context, const WChar* path, double* created, double* modified,
               double* accessed) ZRFS_REQUIRES(context->containerLock);
Status IsDirectoryEmptyAt(StorageContext* context, const WChar* path, uint8_t* empty)
    ZRFS_REQUIRES(context->containerLock);

}  // namespace storage
