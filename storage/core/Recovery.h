// Replays the redo log that a logging writer left behind. This engine reads such logs and never
// writes one.
#pragma once

#include "storage/core/Context.h"

namespace storage {

// The sequential form, in the companion file or in the last pages of a container of fixed size.
// A companion file goes only after a replay that succeeded.
Status RecoverSequential(StorageContext* context);
// The chained form, from logChainHead on, which is 0 in memory afterwards in every outcome.
Status RecoverChained(StorageContext* context);

}  // namespace storage
