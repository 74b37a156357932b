// SPDX-License-Identifier: MIT
// The memory of directory records: they stand in slabs, many to one allocation, near to those they
// were loaded with.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

// A zeroed record with an empty short name, from the pool's slabs or, without a pool, alone. A new
// slab has room for `expected` records. Null when there is no memory.
DirEntry* NewDirEntry(ObjectState* state, EntryPool* pool, uint32_t expected);
// Frees the record with its name, wherever it stands now.
void DestroyDirEntry(DirEntry* entry);
// The pool is given up. Records that are still in use keep their slabs until they are destroyed.
void LeaveSlabs(EntryPool* pool);

// Gives the record a long name, from the heap and owned from here on, in the place of the one it
// has; null: back to the first units.
void SetLongName(DirEntry* entry, WChar* text, uint32_t units);

}  // namespace storage
