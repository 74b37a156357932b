// SPDX-License-Identifier: MIT
// Records of a HeaderPage whose sizes are damaged.
#pragma once

#include <cstdint>

namespace storage {

// Puts sizes of records right where the others tell what they must be: a record with a link has its
// header only, and all records together end at the page's end offset, which is a possible one. True
// when that changed the page; nothing is changed where no size makes sense.
bool MendRecordSizes(uint8_t* page);
// The end of the records that can be walked.
uint32_t WalkableEnd(const uint8_t* page, uint32_t end);

}  // namespace storage
