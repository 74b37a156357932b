// Directories: 64-byte entries on disk, a sorted list in memory.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

// Fills the directory's list once.
Status LoadDirectory(FileObject* directory, StorageTransaction* transaction);
// The 64 bytes of an entry; `page` is told the number of its EntryPage (0 while inline).
Status ReadDirEntry(FileObject* directory, const DirEntry* entry, DirectoryEntry* bytes,
                    uint32_t* page, StorageTransaction* transaction);
Status WriteDirEntry(FileObject* directory, const DirectoryEntry& bytes, uint32_t entry,
                     StorageTransaction* transaction);
Status LoadFullName(FileObject* directory, DirEntry* entry, StorageTransaction* transaction);

// Binary search. *found tells whether `position` is the match or the place to insert.
Status FindEntry(FileObject* directory, DirEntry* key, bool* found, uint32_t* position,
                 StorageTransaction* transaction);
Status FindEntryByName(FileObject* directory, platform::WStringView name, bool* found,
                       uint32_t* position, StorageTransaction* transaction);
// Completes every name and sorts the whole list, once.
Status SortDirectory(FileObject* directory, StorageTransaction* transaction);

// The child's object with a reference taken, or null and `codeWhenAbsent`.
Status OpenChild(FileObject* directory, platform::WStringView name, FileObject** object,
                 Status codeWhenAbsent, StorageTransaction* transaction);
// Gives the object's entry another name, in the list and on disk.
Status SetEntryName(FileObject* object, platform::WStringView name, bool force, bool touch,
                    StorageTransaction* transaction);
bool CheckName(platform::WStringView name);

}  // namespace storage
