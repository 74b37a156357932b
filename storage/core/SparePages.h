// SPDX-License-Identifier: MIT
// Pages that one who holds the lock for more than one change has taken ahead, or given up and not
// yet let go: the map calls them taken, in memory as in the file, and they hold nothing. To take
// one, or to give one up, writes no map page. They go back to the map before the lock does; who is
// killed leaves them lost.
#pragma once

#include <cstdint>

#include "storage/core/ItemList.h"
#include "storage/core/Status.h"

namespace storage {

struct StorageContext;
struct StorageTransaction;

struct SparePages {
    static constexpr uint32_t kMost = 4096;

    // By the kind that stands in the map.
    NumberList headers, entries, data;
    NumberList runs;        // first pages of those that the running commit takes for names
    NumberList dataRuns;    // and for data
    uint32_t searched = 0;  // nothing to take ahead begins before
    uint32_t changes = 0;   // since the lock was taken
    // Free pages before one of directory entries, which are best taken by what that refers to.
    uint32_t keptFrom = 0;
    uint32_t keptEnd = 0;

    bool IsKept(uint32_t page) const { return page - keptFrom < keptEnd - keptFrom; }
    // False when there were none.
    bool EndKeeping() {
        const bool kept = keptFrom != keptEnd;
        keptFrom = keptEnd = 0;
        return kept;
    }
    uint32_t Count() const { return headers.Count() + entries.Count() + data.Count(); }
    NumberList* OfKind(uint16_t kind);
    void Clear();
};

// A page of the kind, just before page `before` if there is one. False when none is left.
bool TakeSparePage(StorageContext* context, uint16_t kind, uint32_t before, uint32_t* number);
// Those for data that are taken next are to stand one behind the other in the file, `count` of them
// where there are so many: a stream is read in one go then.
void PreferRunForData(StorageContext* context, uint32_t count);
// Where nobody has taken pages ahead: a free page that is best for this use and not yet marked. For
// directory entries the last one of a run, whose other pages are kept for what the entries refer
// to; for that the nearest one before the page `before`. False when there is none.
bool FindNearPage(StorageContext* context, uint16_t kind, uint32_t before, uint32_t* number);
// The page was not used after all.
void ReturnSparePage(StorageContext* context, uint16_t kind, uint32_t number);

// In a commit, around the writing of its map pages: marks runs of pages, side by side in one block
// of the file, whose last is for directory entries and the others for what these refer to, or all
// for data.
void MarkRunsAhead(StorageContext* context, const StorageTransaction* transaction);
void EndRunsAhead(StorageContext* context, bool written);
// Takes over the pages that a commit freed. False, and nothing is done, when they would be too
// many.
bool KeepFreedPages(StorageContext* context, StorageTransaction* transaction);
// All of them become free in the map, which is written next.
Status GiveBackSparePages(StorageContext* context);

}  // namespace storage
