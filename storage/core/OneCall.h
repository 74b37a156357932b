// SPDX-License-Identifier: MIT
// A change that is one call of the file but for page 1.
#pragma once

#include "storage/core/Context.h"

namespace storage {

// The one page that refers to what is new in a change, and the new pages right before it in the
// file, with nothing between them but what memory has as well: one call writes them, rising, so
// that the page that refers to the others is the last to be there. New pages elsewhere are written
// before.
struct OneCall {
    static constexpr uint32_t kMost = 8;
    static constexpr uint32_t kMostBytes = 4096;
    uint32_t first = kUnknownPages;
    uint32_t count = 0;  // 0: it cannot be
    CachePage* pages[kMost];
    const void* buffers[kMost];
};

// Leaves `count` 0 where the change does not lie so, or page 1 has no room for a list of it. Else
// the new pages of the call are marked with kPageInCall.
void PlanOneCall(StorageContext* context, StorageTransaction* transaction, OneCall* call);
Status WriteOneCall(StorageContext* context, const OneCall& call);

}  // namespace storage
