// SPDX-License-Identifier: MIT
// Moves pages from the end of a container into free pages nearer the start, and cuts the file.
#pragma once

#include "storage/StorageApi.h"
#include "storage/core/Context.h"

namespace storage {

// 255 in `done` (may be null) when a compaction ran, 0 when a running transaction kept it from
// starting. The page map is known as a whole. Pages move in transactions of a bounded size, each of
// which leaves a sound container: a failure takes back the one that it met, and what was moved
// before stays moved. `progress` (may be null) is asked between two of them. The caller holds
// containerLock.
Status CompactPages(StorageContext* context, uint8_t* done, void* userData,
                    CompactProgress progress) ZRFS_REQUIRES(context->containerLock);
Status CompactPages(StorageContext* context, uint8_t* done) ZRFS_REQUIRES(context->containerLock);

}  // namespace storage
