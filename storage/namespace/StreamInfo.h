// SPDX-License-Identifier: MIT
// The size and the times of a stream, as its FileInfoRecord keeps them.
#pragma once

#include "storage/namespace/StreamPages.h"

namespace storage {

// The object's FileInfoRecord, pinned and whole; kCorrupt when there is none.
Status FindFileInfo(FileObject* object, PinnedRecord* record, StorageTransaction* transaction);
// Writes the size, here and on disk.
Status WriteSize(FileObject* object, uint64_t size, bool touch, StorageTransaction* transaction);

}  // namespace storage
