// SPDX-License-Identifier: MIT
// Objects in transactions: what a commit makes of them, and what a roll back gives back.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

// The hooks by which a transaction reaches its objects.
const ObjectHooks* TransactionHooks();

// A live child whose record is in no list waits with its directory until that is loaded again.
void AddOrphan(FileObject* directory, FileObject* child);
// Takes the child out of that line. A child that no directory waits for is left alone.
void RemoveOrphan(FileObject* child);

// Is any object in a transaction? It need not be held by anybody else, nor what is above it, so
// that nothing may be destroyed for not being held.
bool HasMembers(const StorageContext* context);

// Throws away what memory knows of the directory's entries. Children that somebody uses become
// orphans.
void DropEntries(FileObject* directory);

}  // namespace storage
