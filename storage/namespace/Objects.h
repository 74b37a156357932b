// SPDX-License-Identifier: MIT
// The life of objects: made, referenced, idle, evicted, in a transaction, destroyed.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

// The context's object state and its hooks; kNoMemory. Destroy frees every object, handle,
// search and the state.
Status CreateObjectState(StorageContext* context);
void DestroyObjectState(StorageContext* context);
// Frees every object. The state stays, and the file handles in it, without an object; searches
// must be closed before.
void ClearObjectState(StorageContext* context);
// Objects that nobody refers to go; the others forget what they know of pages, to read it again.
// For when pages move beneath them; no transaction is running.
void ForgetObjects(StorageContext* context);
// The root's entry and object, from the superblock.
Status CreateRootObject(StorageContext* context);

// An object with one reference, in the table and in its entry; null when there is no memory.
FileObject* CreateObject(StorageContext* context, FileObject* parent, DirEntry* entry,
                         uint32_t headerPage);
// Takes the object and all below it out of memory, whoever refers to it.
void DestroyObject(FileObject* object);

inline void AddReference(FileObject* object) {
    ++object->references;
}
// Adds a user: takes the object off the idle list when it has one.
void LeaveIdle(FileObject* object);
// Puts an object with no reference and no transaction on the idle list.
void SettleObject(FileObject* object);
// Takes one reference off the object and each of its ancestors. Null is ignored.
void ReleaseObjectChain(FileObject* object);
// For the begin of an operation: destroys idle objects, oldest first, while memory holds too much
// of them, with all below.
void EvictIdleObjects(StorageContext* context);

// The object becomes part of the transaction, and a roll back will restore it. kSharing when
// another transaction has it; kNoMemory.
Status JoinTransaction(StorageTransaction* transaction, FileObject* object);
// The transaction that a handle's writes run in: begins one and joins it when the object has
// none. kNoMemory.
Status EnsureOwnTransaction(FileObject* object);

// No path leads to the object, or to anything below it, as it did before.
void ForgetPath(FileObject* object);
void ForgetPaths(StorageContext* context);

// Makes a handle or search record, from those kept for reuse where there are some; null when
// there is no memory. They are on no list.
FileHandle* AllocateHandle(StorageContext* context);
void RecycleHandle(StorageContext* context, FileHandle* handle);
FindContext* AllocateSearch(StorageContext* context);
void RecycleSearch(StorageContext* context, FindContext* search);

// Writes now as modified and accessed time of the object.
Status TouchTimes(FileObject* object, StorageTransaction* transaction);

}  // namespace storage
