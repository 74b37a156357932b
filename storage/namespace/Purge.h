// Removing objects with all that belongs to them.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

// Removes an object, what is below it and all their pages. The object is in the transaction, and
// the caller has the one reference on it: kSharing when others have some. After an error the
// caller rolls back.
Status PurgeObject(FileObject* object, StorageTransaction* transaction);

}  // namespace storage
