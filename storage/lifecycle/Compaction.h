// Moves pages from the end of a container into free pages nearer the start, and cuts the file.
#pragma once

#include "storage/core/Context.h"

namespace storage {

// 255 in `done` (may be null) when a compaction ran, 0 when a running transaction kept it from
// starting. The page map is known as a whole. Any failure leaves the container as it was, but for
// a cut that fails when the pages are moved already. The caller holds containerLock.
Status CompactPages(StorageContext* context, uint8_t* done);

}  // namespace storage
