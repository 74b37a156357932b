// SPDX-License-Identifier: MIT
// A new place in a directory, for a new object or for one that moves there.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

struct NewEntry {
    platform::WStringView name;
    uint32_t attributes;
    bool openIfExists;
    bool touch;  // write the directory's times
};

// Makes a child, or with openIfExists opens the one that is there; it comes with one reference of
// its own. kExists.
Status AddDirEntry(FileObject* directory, const NewEntry& wanted, FileObject** object,
                   bool* created, StorageTransaction* transaction);
// Gives an object that was taken out of another directory a place here. `carried` is its old
// entry.
Status AddMovedEntry(FileObject* directory, const NewEntry& wanted, FileObject* object,
                     DirectoryEntry carried, StorageTransaction* transaction);
// The id of a new object. kFull.
Status NewFileId(StorageContext* context, uint32_t* id);

}  // namespace storage
