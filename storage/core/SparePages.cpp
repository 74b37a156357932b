// SPDX-License-Identifier: MIT
#include "storage/core/SparePages.h"

#include <algorithm>

#include "storage/core/PageCache.h"
#include "storage/core/PageMap.h"

namespace storage {

namespace {

constexpr uint32_t kBlockBytes = 4096;    // what one call writes as fast as a single page
constexpr uint32_t kRuns = 4;             // taken at once
constexpr uint32_t kEnough = 80;          // taken ahead for a use, or looked at for one page
constexpr uint32_t kLookedThrough = 256;  // for those that stand one behind the other

// Pages of a run; none where a block has no room for more than one.
uint32_t RunLength(const StorageContext* context) {
    return context->pageSize <= kBlockBytes / 2 ? kBlockBytes / context->pageSize : 0;
}

bool MayKeep(const StorageContext* context) {
    return !context->logInFile && !context->byteSwapped && !context->compacting &&
           !context->readOnly;
}

// The next run that is free, from where the last search ended; 0 for none. It does not go far.
uint32_t FindRun(StorageContext* context, uint32_t length) {
    SparePages* spare = &context->spare;
    if (context->knownPages == kUnknownPages || context->freeCount < length) return 0;
    uint32_t at = spare->searched > context->firstFree ? spare->searched : context->firstFree;
    const uint32_t shift = context->basePage % length;  // runs are even in the file
    at = (at + shift + length - 1) / length * length - shift;
    for (uint32_t tries = 0; tries < 64; ++tries, at += length) {
        spare->searched = at;
        if (at < 3 || context->IsMapPage(at)) continue;
        if (uint64_t{at} + length > context->knownPages) return 0;
        if ((at & ~(context->MapGroup() - 1)) != ((at + length - 1) & ~(context->MapGroup() - 1)))
            continue;
        if (!AreFreePages(context, at, length)) continue;
        spare->searched = at + length;
        return at;
    }
    return 0;
}

// What a run is for: `last` is the kind of its last page.
struct RunUse {
    uint16_t kind;
    uint16_t last;
};
constexpr RunUse kForNames = {kHeaderPage, kEntryPage};
constexpr RunUse kForData = {kDataPage, kDataPage};
constexpr RunUse kForNothing = {kFreePage, kFreePage};

Status MarkRun(StorageContext* context, uint32_t first, uint32_t length, const RunUse& use) {
    const Status status = SetPageKinds(context, first, length - 1, use.kind);
    return status == kOk ? SetPageKinds(context, first + length - 1, 1, use.last) : status;
}

// Did the transaction get new pages for the use, taken ahead or not?
bool Takes(const StorageTransaction* transaction, const RunUse& use) {
    for (const CachePage* page = transaction->pages.head; page != nullptr; page = page->txNext)
        if ((page->flags & kPageNew) != 0 &&
            (page->mapKind == use.kind || page->mapKind == use.last))
            return true;
    return false;
}

void MarkRuns(StorageContext* context, const RunUse& use) {
    SparePages* spare = &context->spare;
    const uint32_t length = RunLength(context);
    NumberList* runs = use.kind == kDataPage ? &spare->dataRuns : &spare->runs;
    if (!spare->OfKind(use.kind)->Reserve(spare->OfKind(use.kind)->Count() + kRuns * length) ||
        !spare->entries.Reserve(spare->entries.Count() + kRuns) || !runs->Reserve(kRuns))
        return;
    for (uint32_t i = 0; i < kRuns; ++i) {
        uint32_t first = FindRun(context, length);
        // A page here and there is left to others.
        if (first == 0 && i == 0 &&
            context->freeCount < 2 * length + std::min(context->knownPages / 64, 64u) &&
            GrowAhead(context) == kOk)
            first = FindRun(context, length);
        if (first == 0) return;
        if (MarkRun(context, first, length, use) != kOk) {
            MarkRun(context, first, length, kForNothing);
            return;
        }
        runs->Add(first);
    }
}

}  // namespace

NumberList* SparePages::OfKind(uint16_t kind) {
    switch (kind) {
        case kHeaderPage:
            return &headers;
        case kEntryPage:
            return &entries;
        case kDataPage:
            return &data;
        default:
            return nullptr;
    }
}

void SparePages::Clear() {
    headers.Clear();
    entries.Clear();
    data.Clear();
    runs.Clear();
    dataRuns.Clear();
    searched = changes = 0;
    EndKeeping();
}

bool TakeSparePage(StorageContext* context, uint16_t kind, uint32_t before, uint32_t* number) {
    NumberList* list = context->spare.OfKind(kind);
    if (list == nullptr || list->Empty()) return false;
    // Streams lie best in the order in which they are read.
    uint32_t best = kind == kDataPage ? 0 : list->Count() - 1;
    if (before != 0) {
        const uint32_t length = RunLength(context);
        uint32_t nearest = 0;
        // Who has no run of his own takes from the one that will be used last.
        best = 0;
        for (uint32_t i = list->Count(), looks = 0; i-- > 0 && looks < kEnough; ++looks) {
            const uint32_t page = (*list)[i];
            const bool near = page < before && page + length > before;
            if (!near && nearest != 0) break;
            if (!near || page < nearest) continue;
            nearest = page;
            best = i;
            if (page + 1 == before) break;
        }
    }
    *number = (*list)[best];
    list->RemoveAt(best);
    return true;
}

// The shortest stretch that suffices, or else the longest.
void PreferRunForData(StorageContext* context, uint32_t count) {
    NumberList& list = context->spare.data;
    const uint32_t looked = std::min(list.Count(), kLookedThrough);
    if (looked < 2) return;
    std::sort(list.begin(), list.begin() + looked);
    uint32_t best = 0, bestLength = 0;
    for (uint32_t first = 0, end; first < looked; first = end) {
        end = first + 1;
        while (end < looked && list[end] == list[end - 1] + 1) ++end;
        const uint32_t length = end - first;
        if (bestLength < count ? length <= bestLength : length < count || length >= bestLength)
            continue;
        best = first;
        bestLength = length;
    }
    std::rotate(list.begin(), list.begin() + best, list.begin() + best + bestLength);
}

bool FindNearPage(StorageContext* context, uint16_t kind, uint32_t before, uint32_t* number) {
    SparePages* spare = &context->spare;
    const uint32_t length = RunLength(context);
    if (length == 0 || !MayKeep(context)) return false;
    if (kind == kEntryPage) {
        const uint32_t first = FindRun(context, length);
        if (first == 0) return false;
        spare->keptFrom = first;
        spare->keptEnd = *number = first + length - 1;
        return true;
    }
    const uint32_t start = before - (before + context->basePage) % length;  // of its block
    if (kind != kHeaderPage || before < length || before >= context->knownPages) return false;
    CachePage* map = nullptr;
    bool found = false;
    for (uint32_t page = before; !found && page-- > start && !context->IsMapPage(page);) {
        uint16_t taken = 0;
        if (GetPageKind(context, page, &map, &taken) != kOk) break;
        found = SlotIsFree(taken);
        *number = page;
    }
    ReleasePage(context, map);
    return found;
}

void ReturnSparePage(StorageContext* context, uint16_t kind, uint32_t number) {
    NumberList* list = context->spare.OfKind(kind);
    if (list == nullptr || !list->Add(number)) SetPageKind(context, number, kFreePage, false);
}

void MarkRunsAhead(StorageContext* context, const StorageTransaction* transaction) {
    const SparePages* spare = &context->spare;
    if (RunLength(context) == 0 || spare->changes == 0 || context->implicitLock ||
        spare->Count() + kRuns * RunLength(context) > SparePages::kMost || !MayKeep(context))
        return;
    if ((spare->headers.Empty() || spare->entries.Empty()) &&
        spare->headers.Count() + spare->entries.Count() <= kEnough && Takes(transaction, kForNames))
        MarkRuns(context, kForNames);
    if (spare->data.Count() < kEnough && Takes(transaction, kForData)) MarkRuns(context, kForData);
}

namespace {

// They go to their lists, or back to the map.
void EndRuns(StorageContext* context, const RunUse& use, NumberList* runs, bool written) {
    NumberList* const list = context->spare.OfKind(use.kind);
    const uint32_t length = RunLength(context);
    for (const uint32_t first : *runs) {
        if (!written) {
            MarkRun(context, first, length, kForNothing);
            continue;
        }
        for (uint32_t i = 0; i + 1 < length; ++i) list->Add(first + i);
        context->spare.OfKind(use.last)->Add(first + length - 1);
    }
    runs->Clear();
}

}  // namespace

void EndRunsAhead(StorageContext* context, bool written) {
    // Names take from the end: the first run is to be used first.
    std::reverse(context->spare.runs.begin(), context->spare.runs.end());
    EndRuns(context, kForNames, &context->spare.runs, written);
    EndRuns(context, kForData, &context->spare.dataRuns, written);
}

namespace {

void Keep(StorageContext* context, uint32_t number, CachePage** map) {
    uint16_t kind = 0;
    if (GetPageKind(context, number, map, &kind) != kOk) return;  // it is lost
    ReturnSparePage(context, kind, number);
}

}  // namespace

bool KeepFreedPages(StorageContext* context, StorageTransaction* transaction) {
    if (!MayKeep(context) || context->implicitLock) return false;
    uint32_t count = transaction->releasePages.Count();
    for (const CachePage* page = transaction->pages.head; page != nullptr; page = page->txNext)
        if ((page->flags & kPageFreed) != 0) ++count;
    if (context->spare.Count() + count > SparePages::kMost) return false;
    CachePage* map = nullptr;
    for (const CachePage* page = transaction->pages.head; page != nullptr; page = page->txNext)
        if ((page->flags & kPageFreed) != 0) Keep(context, page->number, &map);
    for (const uint32_t number : transaction->releasePages) Keep(context, number, &map);
    ReleasePage(context, map);
    transaction->releasePages.Clear();
    return true;
}

Status GiveBackSparePages(StorageContext* context) {
    SparePages* spare = &context->spare;
    Status status = kOk;
    for (NumberList* list : {&spare->headers, &spare->entries, &spare->data}) {
        std::sort(list->begin(), list->end());  // what one page of the map holds comes together
        const Status freed = list->Empty() ? Status{kOk} : FreeInMap(context, *list);
        if (status == kOk) status = freed;
        list->Clear();
    }
    spare->searched = 0;
    return status;
}

}  // namespace storage
