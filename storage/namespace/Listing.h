// SPDX-License-Identifier: MIT
// The entries of a directory by number, in the order in which a search would show them.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

// Where the last look at a list ended. It holds nothing, and is of use only while the list is the
// same one.
struct ListPlace {
    uint64_t version = 0;   // FileObject::listVersion
    uint32_t index = 0;     // among the entries that pass the mask
    uint32_t position = 0;  // in the list
};

// The name of entry `index` among those of the directory that `pattern` (its path and a "*") names
// and that pass the mask; valid until the next operation. With the place of the last look, at this
// directory and mask or at another, the next index costs as much as the first. kNoMore behind the
// last one; otherwise what FindFirst answers.
Status NameAt(StorageContext* context, const WChar* pattern, uint32_t attributeMask, uint32_t index,
              ListPlace* place, platform::WStringView* name) ZRFS_REQUIRES(context->containerLock);

}  // namespace storage
