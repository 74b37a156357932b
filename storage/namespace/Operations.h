// SPDX-License-Identifier: MIT
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

// What a small file is to hold: a head, and data behind it.
struct FileContent {
    const void* head;
    uint32_t headBytes;
    const void* data;
    uint32_t bytes;
};
inline constexpr uint32_t kMostPutBytes = 1 << 20;
// Makes the file `name` in a directory whose entries are loaded, or overwrites the one that is
// there, in one step. kExists when a directory has the name. kNotPlain, and nothing is done, for
// what is no plain file with nobody at it, and for what needs an index: it takes a handle.
// *hasAside tells whether the directory has an entry of the name `aside`, too, unless that is
// empty; its first unit is no letter. The directory is in no transaction. Inside a batch.
Status PutFile(FileObject* directory, platform::WStringView name, const FileContent& content,
               platform::WStringView aside, bool* hasAside)
    ZRFS_REQUIRES(directory->context->containerLock);

Status DeleteAt(StorageContext* context, const WChar* path) ZRFS_REQUIRES(context->containerLock);
// Deletes a directory with the files in it. kNotPlain, and nothing is done, when there is anything
// else in it, somebody is at one of them, or it is no directory.
Status DeleteWithFilesAt(StorageContext* context, const WChar* path)
    ZRFS_REQUIRES(context->containerLock);
Status MoveAt(StorageContext* context, const WChar* oldPath, const WChar* newPath)
    ZRFS_REQUIRES(context->containerLock);
Status AttributesAt(StorageContext* context, const WChar* path, uint32_t* attributes)
    ZRFS_REQUIRES(context->containerLock);
Status TimesAt(StorageContext* context, const WChar* path, double* created, double* modified,
               double* accessed) ZRFS_REQUIRES(context->containerLock);
Status IsDirectoryEmptyAt(StorageContext* context, const WChar* path, uint8_t* empty)
    ZRFS_REQUIRES(context->containerLock);

}  // namespace storage
