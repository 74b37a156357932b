// SPDX-License-Identifier: MIT
#include "storage/core/PageMap.h"

#include <algorithm>

#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"

namespace storage {

namespace {

void NoteFree(StorageContext* context, uint32_t page) {
    if (page < context->firstFree) context->firstFree = page;
    if (page > context->lastFree) context->lastFree = page;
}

// One group counted. `used` is the last page in use that was met, or `map` when the group has no
// map page yet.
struct GroupCount {
    uint32_t free = 0;
    uint32_t lastUsed = 0;
    bool mapped = false;
};

GroupCount CountGroup(StorageContext* context, const uint8_t* slots, uint32_t map,
                      uint32_t lastUsed) {
    GroupCount count{0, lastUsed, LoadU16(slots, 0) != 0};
    for (uint32_t k = 1; k < context->MapGroup() && map + k < context->totalPages; ++k) {
        if (!count.mapped || SlotIsFree(LoadU16(slots, 2 * k))) {
            ++count.free;
            NoteFree(context, map + k);
        } else {
            count.lastUsed = map + k;
        }
    }
    return count;
}

// A container of fixed size takes its pages from those behind the last one in use, so that these do
// not count as free.
void EndBehindLastUsed(StorageContext* context, uint32_t lastUsed) {
    const uint32_t group = context->MapGroup();
    const uint32_t known = lastUsed + 1;
    context->knownPages = known;
    for (uint32_t g = known / group; g < context->freeCounts.Count(); ++g) {
        const uint32_t first = g * group + 1, end = std::min((g + 1) * group, context->totalPages);
        const uint32_t behind = end - std::min(end, std::max(first, known));
        context->freeCounts[g] -= behind;
        context->freeCount -= behind;
    }
    if (context->lastFree >= known) context->lastFree = lastUsed;
}

}  // namespace

Status ScanPageMap(StorageContext* context, bool all, uint32_t limit) {
    // Where such a container ends is known when all of its map is.
    all = all || context->logInFile;
    uint64_t map = uint64_t{context->mapPagesKnown} << (context->pageShift - 1);
    uint32_t lastUsed = static_cast<uint32_t>(map) - 1;
    while (map < context->totalPages) {
        const uint32_t number = static_cast<uint32_t>(map);
        CachePage* page = nullptr;
        const Status status = GetPageChecked(
            context, number, static_cast<uint16_t>(context->pageShift), &page, 0, nullptr);
        if (status != kOk) return status;
        const bool mapped = LoadU16(page->buffer, 0) != 0;
        if (!mapped && context->logInFile) {
            ReleasePage(context, page);
            EndBehindLastUsed(context, lastUsed);
            return kOk;
        }
        if (!context->freeCounts.Add(0)) {
            ReleasePage(context, page);
            return kNoMemory;
        }
        const GroupCount count = CountGroup(context, page->buffer, number, lastUsed);
        lastUsed = mapped ? count.lastUsed : number;
        ReleasePage(context, page);
        context->freeCounts.Last() = count.free;
        ++context->mapPagesKnown;
        // The group just counted is not in freeCount yet when the end is decided, so that the
        // search for a free page reads one group more than it needs; meant so.
        const bool enough =
            !all && (limit > 0 ? context->mapPagesKnown > limit : context->freeCount > 0);
        context->freeCount += count.free;
        map += context->MapGroup();
        if (map >= context->totalPages) break;
        if (enough) return kOk;
    }
    if (context->logInFile)
        EndBehindLastUsed(context, lastUsed);
    else
        context->knownPages = context->totalPages;
    return kOk;
}

namespace {

// The map page of `number`, scanned and pinned.
Status GetMapPage(StorageContext* context, uint32_t number, CachePage** page) {
    const uint32_t group = number >> (context->pageShift - 1);
    if (group >= context->mapPagesKnown) {
        const Status status = ScanPageMap(context, false, group);
        if (status != kOk) return status;
        if (group >= context->mapPagesKnown) return Corrupt(context);
    }
    return GetPage(context, number & ~(context->MapGroup() - 1), page, true, nullptr);
}

Status NoteDirtyMapPage(StorageContext* context, CachePage* page) {
    if (page->dirtyMapIndex == 0) {
        if (!context->dirtyMapPages.Add(page)) return kNoMemory;
        page->dirtyMapIndex = context->dirtyMapPages.Count();
    }
    return MarkPageChanged(context, page);
}

void CountChange(StorageContext* context, uint32_t number, bool wasFree, bool isFree, bool force) {
    uint32_t& groupCount = context->freeCounts[number >> (context->pageShift - 1)];
    if (isFree && (!wasFree || force)) {
        ++context->freeCount;
        ++groupCount;
        NoteFree(context, number);
    } else if (!isFree && wasFree && !force && groupCount > 0) {
        --context->freeCount;
        --groupCount;
    }
}

}  // namespace

namespace {

Status SetSlot(StorageContext* context, CachePage* page, uint32_t number, uint16_t kind,
               bool force) {
    const uint32_t slot = 2 * (number & (context->MapGroup() - 1));
    const uint16_t old = LoadU16(page->buffer, slot);
    if (old == kind && !force) return kOk;
    const Status status = NoteDirtyMapPage(context, page);
    if (status != kOk) return status;
    Store<uint16_t>(page->buffer, slot, kind);
    if (slot != 0) CountChange(context, number, SlotIsFree(old), SlotIsFree(kind), force);
    return kOk;
}

}  // namespace

Status SetPageKinds(StorageContext* context, uint32_t first, uint32_t count, uint16_t kind) {
    if (!context->MayChange()) return kReadOnly;
    CachePage* page = nullptr;
    Status status = GetMapPage(context, first, &page);
    for (uint32_t i = 0; i < count && status == kOk; ++i)
        status = SetSlot(context, page, first + i, kind, false);
    ReleasePage(context, page);
    return status;
}

bool AreFreePages(StorageContext* context, uint32_t first, uint32_t count) {
    CachePage* page = nullptr;
    if (GetMapPage(context, first, &page) != kOk) return false;
    const uint32_t slot = first & (context->MapGroup() - 1);
    bool free = true;
    for (uint32_t i = 0; i < count && free; ++i)
        free = SlotIsFree(LoadU16(page->buffer, 2 * (slot + i)));
    ReleasePage(context, page);
    return free;
}

Status SetPageKind(StorageContext* context, uint32_t number, uint16_t kind, bool force) {
    if (!context->MayChange()) return kReadOnly;
    CachePage* page = nullptr;
    Status status = GetMapPage(context, number, &page);
    if (status != kOk) return status;
    status = SetSlot(context, page, number, kind, force);
    ReleasePage(context, page);
    return status;
}

Status GetPageKind(StorageContext* context, uint32_t number, CachePage** map, uint16_t* kind) {
    if (*map == nullptr || (*map)->number != (number & ~(context->MapGroup() - 1))) {
        ReleasePage(context, *map);
        const Status status = GetMapPage(context, number, map);
        if (status != kOk) return status;
    }
    *kind = LoadU16((*map)->buffer, 2 * (number & (context->MapGroup() - 1)));
    return kOk;
}

Status FreeInMap(StorageContext* context, NumberList& pages) {
    if (!context->MayChange()) return kReadOnly;
    CachePage* map = nullptr;
    Status status = kOk;
    for (const uint32_t number : pages) {
        const uint32_t wanted = number & ~(context->MapGroup() - 1);
        if (map == nullptr || map->number != wanted) {
            ReleasePage(context, map);
            status = GetMapPage(context, number, &map);
        }
        if (status == kOk) status = SetSlot(context, map, number, kFreePage, false);
        if (status != kOk) break;
    }
    ReleasePage(context, map);
    return status;
}

Status PreparePageKind(StorageContext* context, uint32_t number, uint32_t count) {
    CachePage* page = nullptr;
    const Status status = GetMapPage(context, number, &page);
    if (status != kOk) return status;
    ReleasePage(context, page);
    return context->dirtyMapPages.Reserve(context->dirtyMapPages.Count() + count) ? kOk : kNoMemory;
}

Status FindFreePage(StorageContext* context, uint32_t* number) {
    const uint32_t group = context->MapGroup();
    uint64_t start = context->firstFree == kUnknownPages ? 0 : context->firstFree;
    for (; start < context->knownPages; start = (start / group + 1) * group) {
        const uint32_t index = static_cast<uint32_t>(start) / group;
        if (index >= context->mapPagesKnown) {
            const Status status = ScanPageMap(context, false, index);
            if (status != kOk) return status;
            if (index >= context->mapPagesKnown) return kFull;
        }
        if (context->freeCounts[index] == 0) continue;
        CachePage* page = nullptr;
        const uint32_t map = index * group;
        const Status status = GetPage(context, map, &page, true, nullptr);
        if (status != kOk) return status;
        uint32_t slot = static_cast<uint32_t>(start) - map;
        if (slot == 0) slot = 1;
        uint32_t kept = kUnknownPages;  // the first that is free and kept for others
        for (; slot < group && map + slot < context->knownPages; ++slot) {
            if (!SlotIsFree(LoadU16(page->buffer, 2 * slot))) continue;
            if (!context->spare.IsKept(map + slot)) break;
            kept = std::min(kept, map + slot);
        }
        const bool found = slot < group && map + slot < context->knownPages;
        ReleasePage(context, page);
        if (!found) continue;
        *number = map + slot;
        context->firstFree = std::min(kept, *number + 1);
        return kOk;
    }
    return kFull;
}

namespace {

// The pages by which the file is about to grow: `count` pages from `first` on, of which `wanted`
// is the one asked for.
struct Growth {
    uint32_t first = 0;
    uint32_t count = 0;
    uint32_t wanted = 0;
};

// Map pages among them come on top of the batch.
Status PlanGrowth(const StorageContext* context, Growth* growth) {
    const uint32_t known = context->knownPages;
    const uint32_t maxPages = context->Super()->maxPages;
    const uint64_t end = maxPages != 0 ? maxPages : kUnknownPages;
    if (known >= end) return kFull;
    uint64_t batch = known < 256 ? known / 4 + 1 : 64;
    if (known + batch > end) batch = end - known;
    growth->first = known;
    for (uint64_t page = known; page < end && growth->count < batch; ++page) {
        ++growth->count;
        if (context->IsMapPage(static_cast<uint32_t>(page))) {
            ++batch;
        } else if (growth->wanted == 0) {
            growth->wanted = static_cast<uint32_t>(page);
        }
    }
    return growth->wanted == 0 ? kFull : kOk;
}

uint16_t KindInGrowth(const StorageContext* context, const Growth& growth, uint32_t page,
                      uint16_t kind) {
    if (context->IsMapPage(page)) return static_cast<uint16_t>(context->pageShift);
    return page == growth.wanted ? kind : uint16_t{kFreePage};
}

// Writes the new pages in runs that share one block of memory.
Status WriteGrowth(StorageContext* context, const Growth& growth, uint16_t kind) {
    constexpr uint32_t kMostRun = 80, kBlockBytes = 64 << 10;
    const uint32_t size = context->pageSize;
    const uint32_t most = std::min(std::clamp(kBlockBytes / size, 1u, kMostRun), growth.count);
    uint8_t* block = static_cast<uint8_t*>(platform::HeapAllocateZeroed(size_t{most} * size));
    if (block == nullptr) return kNoMemory;
    Status status = kOk;
    for (uint32_t done = 0; done < growth.count && status == kOk;) {
        const uint32_t run = std::min(most, growth.count - done);
        for (uint32_t i = 0; i < run; ++i) {
            uint8_t* page = block + size_t{i} * size;
            const uint32_t number = growth.first + done + i;
            Store<uint16_t>(page, 0, KindInGrowth(context, growth, number, kind));
            // A map page takes no number; those bytes are slots.
            Store<uint32_t>(page, 4, context->IsMapPage(number) ? 0 : number);
        }
        status = WriteFreshPages(context, block, run, growth.first + done);
        // What the other byte order has made of them is not to be read again.
        if (context->byteSwapped) std::memset(block, 0, size_t{run} * size);
        done += run;
    }
    platform::HeapRelease(block);
    return status;
}

// Enters one page behind the known ones into the map. `map` is the map page of the one before it,
// or null, and becomes that of this one; it is pinned.
Status AppendToMap(StorageContext* context, uint32_t page, uint16_t kind, CachePage** map) {
    if (context->IsMapPage(page) && page / context->MapGroup() == context->mapPagesKnown) {
        if (!context->freeCounts.Add(0)) return kNoMemory;
        ++context->mapPagesKnown;
    }
    ++context->knownPages;
    if (*map == nullptr || context->IsMapPage(page)) {
        ReleasePage(context, *map);
        const Status status = GetMapPage(context, page, map);
        if (status != kOk) return status;
    }
    return SetSlot(context, *map, page, kind, true);
}

Status GrowFile(StorageContext* context, uint16_t kind, uint32_t* number) {
    Growth growth;
    Status status = PlanGrowth(context, &growth);
    if (status != kOk) return status;
    status = WriteGrowth(context, growth, kind);
    if (status != kOk) {
        // No part of a page stays behind the end.
        CutFile(context->file, uint64_t{context->basePage} + context->totalPages,
                context->pageSize);
        return status;
    }
    CachePage* map = nullptr;
    for (uint32_t i = 0; i < growth.count && status == kOk; ++i) {
        const uint32_t page = growth.first + i;
        context->totalPages = page + 1;
        status = AppendToMap(context, page, KindInGrowth(context, growth, page, kind), &map);
    }
    ReleasePage(context, map);
    context->grewSinceFlush = true;
    *number = growth.wanted;
    return status;
}

// A container of fixed size takes its pages one by one from those behind the last one used, and
// leaves the last ones to its log.
Status GrowWithinFile(StorageContext* context, uint16_t kind, uint32_t* number) {
    Status status = kOk;
    if (context->knownPages == kUnknownPages) status = ScanPageMap(context, true, 0);
    const uint32_t spare = kind == kAnyKind || kind == 65520 ? 1 : 6;
    for (bool done = false; status == kOk && !done;) {
        const uint32_t page = context->knownPages;
        if (uint64_t{page} + spare > context->totalPages) return kFull;
        done = !context->IsMapPage(page);
        *number = page;
        CachePage* map = nullptr;
        status = AppendToMap(context, page, done ? kind : static_cast<uint16_t>(context->pageShift),
                             &map);
        ReleasePage(context, map);
    }
    context->grewSinceFlush = true;
    return status;
}

}  // namespace

Status AllocatePageNumber(StorageContext* context, uint16_t kind, uint32_t* number,
                          uint8_t* buffer) {
    std::memset(buffer, 0, context->pageSize);
    while (context->freeCount == 0 && context->knownPages == kUnknownPages)
        if (ScanPageMap(context, false, 0) != kOk) break;
    if (context->freeCount != 0) {
        const Status status = FindFreePage(context, number);
        if (status == kOk) return SetPageKind(context, *number, kind, false);
        if (status != kFull) return status;
    }
    // What is not known yet cannot be grown behind.
    if (context->knownPages == kUnknownPages) {
        const Status status = ScanPageMap(context, true, 0);
        if (status != kOk) return status;
    }
    if (context->logInFile) return GrowWithinFile(context, kind, number);
    const Status status = GrowFile(context, kind, number);
    if (status != kFull || !context->spare.EndKeeping()) return status;
    return AllocatePageNumber(context, kind, number, buffer);
}

Status GrowAhead(StorageContext* context) {
    if (context->knownPages == kUnknownPages || context->logInFile) return kFull;
    uint32_t number = 0;
    return GrowFile(context, kFreePage, &number);
}

Status FlushMapPages(StorageContext* context) {
    Status first = kOk;
    for (uint32_t i = context->dirtyMapPages.Count(); i-- > 0;) {
        CachePage* page = context->dirtyMapPages[i];
        Store<uint16_t>(page->buffer, 0, static_cast<uint16_t>(context->pageShift));
        const Status status = WriteCachedPage(context, page);
        if (status != kOk) {
            if (first == kOk) first = status;
            continue;
        }
        page->flags &= static_cast<uint16_t>(~(kPageChanged | kPageVital));
        context->dirtyMapPages[i] = context->dirtyMapPages.Last();
        context->dirtyMapPages[i]->dirtyMapIndex = i + 1;
        context->dirtyMapPages.Truncate(context->dirtyMapPages.Count() - 1);
        page->dirtyMapIndex = 0;
    }
    return first;
}

void ForgetMapChanges(StorageContext* context) {
    while (!context->dirtyMapPages.Empty()) {
        CachePage* page = context->dirtyMapPages.Last();
        context->dirtyMapPages.Truncate(context->dirtyMapPages.Count() - 1);
        page->dirtyMapIndex = 0;
        page->flags &= static_cast<uint16_t>(~(kPageChanged | kPageVital));
        MarkClean(context, page);
    }
}

}  // namespace storage
