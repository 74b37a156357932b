// SPDX-License-Identifier: MIT
// Removing objects with all that belongs to them.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

// Removes an object, what is below it and all their pages. The object is in the transaction, and
// the caller has the one reference on it: kSharing when others have some. After an error the
// caller rolls back.
Status PurgeObject(FileObject* object, StorageTransaction* transaction);

// Pages of a stream of so many bytes.
inline uint64_t PagesOf(const StorageContext* context, uint64_t bytes)
    ZRFS_REQUIRES(context->containerLock) {
    return (bytes + context->payloadSize - 1) / context->payloadSize;
}

// Frees the pages of a chain from `first` on, with no more than a look at each. A page of another
// kind or owner, or a chain that does not end, is corrupt. As most chains lie side by side, those
// that are `expected` (0: nobody knows) are read at once.
Status FreeChainUnread(StorageContext* context, uint32_t first, uint16_t kind, uint32_t fileId,
                       uint64_t expected, StorageTransaction* transaction)
    ZRFS_REQUIRES(context->containerLock);

}  // namespace storage
