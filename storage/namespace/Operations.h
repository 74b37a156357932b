// The operations that change or query the namespace, each one transaction. The caller holds
// containerLock.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

Status CreateDirectoryAt(StorageContext* context, const WChar* path);
struct FileAccess {
    bool wantRead, wantWrite, denyRead, denyWrite;
};
Status CreateFileAt(StorageContext* context, const WChar* path, const FileAccess& access,
                    bool openIfExists, bool truncate, FileHandle** file);
Status OpenFileAt(StorageContext* context, const WChar* path, const FileAccess& access,
                  FileHandle** file);
Status DeleteAt(StorageContext* context, const WChar* path);
Status MoveAt(StorageContext* context, const WChar* oldPath, const WChar* newPath);
Status AttributesAt(StorageContext* context, const WChar* path, uint32_t* attributes);
Status TimesAt(StorageContext* context, const WChar* path, double* created, double* modified,
               double* accessed);
Status IsDirectoryEmptyAt(StorageContext* context, const WChar* path, uint8_t* empty);

}  // namespace storage
