// SPDX-License-Identifier: MIT
// Replays the redo log that a writer left behind: one of this engine that died in the middle of a
// commit (RedoLog.h), or another one.
#pragma once

#include "storage/core/Context.h"

namespace storage {

enum class LogUse {
    Replay,  // replayed, and gone afterwards
    Look,    // a companion file is read only, and stays as it is
};
// The sequential form, in the companion file or in the last pages of a container of fixed size.
// A companion file goes only after a replay that succeeded; one that is there and cannot be opened
// fails the replay and stays. A log that makes no sense is kCorrupt and changes no page.
Status RecoverSequential(StorageContext* context, LogUse use = LogUse::Replay);
// The chained form, from logChainHead on, which is 0 in memory afterwards in every outcome. The
// log is switched off in page 1 before its own pages are given up, so that a replay that is stopped
// is done again from its start.
Status RecoverChained(StorageContext* context);

}  // namespace storage
