// SPDX-License-Identifier: MIT
// Corrects what refers to a page that got another number.
#pragma once

#include "storage/core/Context.h"

namespace storage {

// In page `page`, which has exactly one reference to page `old` of kind `kind`, makes it `now`.
// Any other number of references, or one where a page of that kind has no place, is kCorrupt; the
// container is not marked for it.
Status FixPageReference(StorageContext* context, uint32_t page, uint32_t old, uint32_t now,
                        StorageTransaction* transaction, uint16_t kind);
// The pages below a renumbered page, which refer to it as the page before them or as the index
// page that lists them.
Status FixChildReferences(StorageContext* context, CachePage* page, uint32_t old,
                          StorageTransaction* transaction);

}  // namespace storage
