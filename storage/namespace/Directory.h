// SPDX-License-Identifier: MIT
// Directories: 64-byte entries on disk, a sorted list in memory.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

// Entries that one EntryPage holds.
inline uint32_t EntriesPerPage(const StorageContext* context) {
    return context->payloadSize / kEntrySize;
}
// Units of a name that one NamePage holds.
inline uint32_t UnitsPerNamePage(const StorageContext* context) {
    return context->payloadSize / 2;
}

// Fills the directory's list once. An object without a DirectoryRecord is an empty directory.
// Entries that stand in the record get a page when that may be written: at once, or when the
// directory is in the transaction, as whatever is to be changed.
Status LoadDirectory(FileObject* directory, StorageTransaction* transaction);
// Moves entries that stand in the record to a page, to make room where the record is.
Status MoveEntriesOut(FileObject* directory, StorageTransaction* transaction);
// Such entries may be in memory: nothing is changed in the directory then without LoadDirectory.
bool HasInlineEntries(const FileObject* directory);
// Looks for an entry of a directory whose list is not filled, on its pages as they stand in the
// file, and tells its place among them. False where the list is to be filled instead: for most of
// those who look for what is not there, too.
bool GlanceAt(FileObject* directory, platform::WStringView name, DirectoryEntry* bytes,
              uint32_t* entry);
// The 64 bytes of an entry; `page` is told the number of its EntryPage (0 while inline). Either
// output may be null.
Status ReadDirEntry(FileObject* directory, const DirEntry* entry, DirectoryEntry* bytes,
                    uint32_t* page, StorageTransaction* transaction);
// With a file id of 0 the entry becomes free.
Status WriteDirEntry(FileObject* directory, const DirectoryEntry& bytes, uint32_t entry,
                     StorageTransaction* transaction);
// Takes a free entry, from a new EntryPage if there is none, and tells its page.
Status TakeFreeEntry(FileObject* directory, uint32_t* entry, uint32_t* page,
                     StorageTransaction* transaction);
// Reads the units of the name from the 23rd on. Nothing to do for a complete name.
Status LoadFullName(FileObject* directory, DirEntry* entry, StorageTransaction* transaction);

// Which of two records of a directory comes first as far as their names are known: complete names
// by the case rule; others by their first 22 units, then the greater id first. Three-way.
int CompareEntries(const DirEntry* a, const DirEntry* b, bool caseSensitive);
// Tells those who remember a place in the list that it is another list now.
inline void ListChanged(FileObject* directory) {
    directory->listVersion = ++directory->context->objects->listVersions;
}
// Sorts the whole list by what is known of the names.
void SortEntries(FileObject* directory);
// Binary search in a loaded directory. *found tells whether `position` is the match or the place
// to insert. Reads the names that agree with `name` in their first 22 units.
Status FindEntry(FileObject* directory, platform::WStringView name, bool* found, uint32_t* position,
                 StorageTransaction* transaction);
// Completes every name and sorts the whole list, once.
Status SortDirectory(FileObject* directory, StorageTransaction* transaction);
// Puts a record with a complete name in its place. The list has room for it: reserved before.
Status InsertEntry(FileObject* directory, DirEntry* entry, StorageTransaction* transaction);
// Takes a record out of the list, if it is there.
void RemoveEntry(FileObject* directory, DirEntry* entry);

// The object of a record of the loaded directory, with one reference taken on it. kNoMemory;
// kCorrupt when an object of that id is in memory already.
Status OpenEntry(FileObject* directory, DirEntry* entry, FileObject** object);
// The child's object with one reference taken on it, or null and `codeWhenAbsent`.
Status OpenChild(FileObject* directory, platform::WStringView name, FileObject** object,
                 Status codeWhenAbsent, StorageTransaction* transaction);
// Gives the object's record another name, in the list and on disk. Without `force`, and with
// names that compare by case, an equal name changes nothing. `touch` writes the object's times.
Status SetEntryName(FileObject* object, platform::WStringView name, bool force, bool touch,
                    StorageTransaction* transaction);
// Whether the name may be used: no unit below 32 and none of "/\?*:<>|".
bool CheckName(platform::WStringView name);

}  // namespace storage
