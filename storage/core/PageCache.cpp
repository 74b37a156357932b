// SPDX-License-Identifier: MIT
#include "storage/core/PageCache.h"

#include <new>

#include "storage/core/PageIo.h"
#include "storage/core/PageMap.h"

namespace storage {

namespace {

CachePage* AllocateDescriptor(StorageContext* context) {
    CachePage* page = context->spareDescriptors.Take();
    if (page != nullptr) {
        *page = CachePage{};
        return page;
    }
    return static_cast<CachePage*>(platform::HeapAllocateZeroed(sizeof(CachePage)));
}

void ReleaseDescriptor(StorageContext* context, CachePage* page) {
    if (!context->spareDescriptors.Keep(page)) platform::HeapRelease(page);
}

void LeaveLru(StorageContext* context, CachePage* page) {
    if ((page->flags & kPageOnLru) == 0) return;
    if ((page->flags & kPageOnMapLru) != 0) {
        context->mapLru.Remove(page);
        --context->mapLruCount;
    } else {
        context->lru.Remove(page);
    }
    page->flags &= static_cast<uint16_t>(~(kPageOnLru | kPageOnMapLru));
}

void ForgetDirtyMapPage(StorageContext* context, CachePage* page) {
    if (page->dirtyMapIndex == 0) return;
    PointerList<CachePage>& list = context->dirtyMapPages;
    const uint32_t index = page->dirtyMapIndex - 1;
    list[index] = list.Last();
    list[index]->dirtyMapIndex = index + 1;
    list.Truncate(list.Count() - 1);
    page->dirtyMapIndex = 0;
}

void DropBuffer(StorageContext* context, CachePage* page) {
    if (page->buffer == nullptr) return;
    ReleaseBuffer(context, page->buffer);
    page->buffer = nullptr;
    if ((page->flags & kPageHasBuffer) != 0) --context->cachedPages;
    page->flags &= static_cast<uint16_t>(~(kPageHasBuffer | kPageDirty));
}

void DestroyDescriptor(StorageContext* context, CachePage* page) {
    LeaveLru(context, page);
    ForgetDirtyMapPage(context, page);
    DropBuffer(context, page);
    context->pageTable.Remove(page);
    ReleaseDescriptor(context, page);
}

// Only pages that are as on disk stand on the list: a change reaches the file by its commit and no
// other way, and until then the cache may pass its limit.
void EvictDownTo(StorageContext* context, uint32_t limit) {
    while (context->cachedPages > limit) {
        // What is nowhere else in memory stays longer, and leaves the others a little room.
        const bool fromMap = context->lru.Empty() || context->mapLruCount > limit - limit / 16;
        CachePage* page = fromMap ? context->mapLru.head : context->lru.head;
        if (page == nullptr) return;
        LeaveLru(context, page);
        DropBuffer(context, page);
        if ((page->flags & kPageInTransaction) == 0) DestroyDescriptor(context, page);
    }
}

void JoinLru(StorageContext* context, CachePage* page) {
    if ((page->flags & (kPageOnLru | kPageDirty)) != 0) return;
    if (context->IsMapPage(page->number)) {
        context->mapLru.PushBack(page);
        ++context->mapLruCount;
        page->flags |= kPageOnMapLru;
    } else {
        context->lru.PushBack(page);
    }
    page->flags |= kPageOnLru;
}

// Room for one buffer more, made before anything else changes.
Status AttachBuffer(StorageContext* context, CachePage* page) {
    if (context->cachedPages >= context->cacheLimit)
        EvictDownTo(context, context->cacheLimit == 0 ? 0 : context->cacheLimit - 1);
    page->buffer = AllocateBuffer(context);
    if (page->buffer == nullptr) return kNoMemory;
    page->flags |= kPageHasBuffer;
    ++context->cachedPages;
    return kOk;
}

Status LoadBuffer(StorageContext* context, CachePage* page) {
    Status status = AttachBuffer(context, page);
    if (status != kOk) return status;
    status = ReadPage(context, page->buffer, page->number);
    if (status != kOk) DropBuffer(context, page);
    return status;
}

CachePage* FindOrMakeDescriptor(StorageContext* context, uint32_t number) {
    CachePage* page = context->pageTable.Find(number);
    if (page != nullptr) return page;
    page = AllocateDescriptor(context);
    if (page == nullptr) return nullptr;
    page->number = number;
    if (context->pageTable.Insert(page)) return page;
    ReleaseDescriptor(context, page);
    return nullptr;
}

bool PassesKindCheck(const StorageContext* context, CachePage* page, uint16_t kind,
                     uint32_t fileId) {
    const uint16_t found = LoadU16(page->buffer, 0);
    if (kind == context->pageShift) return found == 0 || found == kind;
    return found == kind && HeaderOf(page->buffer)->fileId == fileId;
}

}  // namespace

void MarkClean(StorageContext* context, CachePage* page) {
    page->flags &= static_cast<uint16_t>(~kPageDirty);
    if (page->pinCount == 0 && page->buffer != nullptr) JoinLru(context, page);
}

uint8_t* AllocateBuffer(StorageContext* context) {
    void* buffer = context->spareBuffers.Take();
    return static_cast<uint8_t*>(buffer != nullptr ? buffer
                                                   : platform::HeapAllocate(context->pageSize));
}

void ReleaseBuffer(StorageContext* context, uint8_t* buffer) {
    if (buffer == nullptr) return;
    if (!context->spareBuffers.Keep(new (buffer) SpareBuffer)) platform::HeapRelease(buffer);
}

Status GetPage(StorageContext* context, uint32_t number, CachePage** out, bool load,
               StorageTransaction* transaction) {
    *out = nullptr;
    CachePage* page = FindOrMakeDescriptor(context, number);
    if (page == nullptr) return kNoMemory;
    LeaveLru(context, page);
    ++page->pinCount;
    Status status = kOk;
    if (load && page->buffer == nullptr) status = LoadBuffer(context, page);
    if (status == kOk && transaction != nullptr) status = JoinPage(transaction, page);
    if (status != kOk) {
        ReleasePage(context, page);
        return status;
    }
    *out = page;
    return kOk;
}

Status GetPageChecked(StorageContext* context, uint32_t number, uint16_t kind, CachePage** out,
                      uint32_t fileId, StorageTransaction* transaction) {
    *out = nullptr;
    if (!context->active) return kNotOpen;
    CachePage* page = nullptr;
    const Status status = GetPage(context, number, &page, true, transaction);
    if (status != kOk) return status;
    if (!PassesKindCheck(context, page, kind, fileId)) {
        ReleasePage(context, page);
        return Corrupt(context);
    }
    page->mapKind = kind;
    *out = page;
    return kOk;
}

Status GetPageToFill(StorageContext* context, uint32_t number, CachePage** out,
                     StorageTransaction* transaction) {
    *out = nullptr;
    if (!context->active) return kNotOpen;
    CachePage* page = nullptr;
    Status status = GetPage(context, number, &page, false, transaction);
    if (status == kOk && page->buffer == nullptr) status = AttachBuffer(context, page);
    if (status == kOk)
        *out = page;
    else
        ReleasePage(context, page);
    return status;
}

void ReleasePage(StorageContext* context, CachePage* page, bool unpin) {
    if (page == nullptr) return;
    if (unpin) --page->pinCount;
    if (page->pinCount != 0) return;
    if ((page->flags & kPageInTransaction) != 0 && (page->flags & kPageChanged) == 0)
        LeavePage(page->transaction, page);
    if (page->buffer != nullptr) {
        JoinLru(context, page);
        if (context->cachedPages > context->cacheLimit) EvictPages(context);
        return;
    }
    if ((page->flags & kPageInTransaction) != 0) return;
    DestroyDescriptor(context, page);
}

Status MarkPageChanged(StorageContext* context, CachePage* page) {
    if (!context->MayChange()) return kReadOnly;
    ++context->changes;
    page->flags |= kPageDirty | kPageChanged | kPageVital;
    return kOk;
}

Status MarkPageTouched(StorageContext* context, CachePage* page) {
    if (!context->MayChange()) return kReadOnly;
    ++context->changes;
    page->flags |= kPageDirty | kPageChanged;
    return kOk;
}

namespace {

Status TakePageNumber(StorageContext* context, uint16_t kind, CachePage* page, uint32_t before) {
    if (TakeSparePage(context, kind, before, &page->number)) {
        std::memset(page->buffer, 0, context->pageSize);
        page->flags |= kPageSpare;
        return kOk;
    }
    if (FindNearPage(context, kind, before, &page->number)) {
        std::memset(page->buffer, 0, context->pageSize);
        return SetPageKind(context, page->number, kind, false);
    }
    const Status status = AllocatePageNumber(context, kind, &page->number, page->buffer);
    if (status != kFull || context->spare.Count() == 0) return status;
    const Status freed = GiveBackSparePages(context);
    if (freed != kOk) return freed;
    return AllocatePageNumber(context, kind, &page->number, page->buffer);
}

}  // namespace

Status AllocatePage(StorageContext* context, uint16_t kind, CachePage** out,
                    StorageTransaction* transaction, uint32_t before) {
    *out = nullptr;
    if (!context->MayChange()) return kReadOnly;
    ++context->changes;
    CachePage* page = AllocateDescriptor(context);
    if (page == nullptr) return kNoMemory;
    Status status = AttachBuffer(context, page);
    if (status == kOk) status = TakePageNumber(context, kind, page, before);
    if (status == kOk && context->pageTable.Find(page->number) != nullptr) {
        // The map called a page free that somebody uses.
        status = Corrupt(context);
    } else if (status == kOk && !context->pageTable.Insert(page)) {
        if ((page->flags & kPageSpare) != 0)
            ReturnSparePage(context, kind, page->number);
        else
            SetPageKind(context, page->number, kFreePage, false);
        status = kNoMemory;
    }
    if (status != kOk) {
        DropBuffer(context, page);
        ReleaseDescriptor(context, page);
        return status;
    }
    HeaderOf(page->buffer)->kind = kind;
    HeaderOf(page->buffer)->pageNumber = page->number;
    page->mapKind = kind;
    page->flags |= kPageDirty | kPageNew | kPageChanged | kPageVital;
    page->pinCount = 1;
    JoinPage(transaction, page);
    *out = page;
    return kOk;
}

// What the freed page held is not written: nothing refers to it once the transaction commits,
// and a roll back finds it on disk as it was.
Status FreePage(StorageContext* context, CachePage* page) {
    Status status = kOk;
    if (!context->MayChange()) {
        status = kReadOnly;
    } else if (page->pinCount > 1) {
        status = kSharing;
    } else {
        ++context->changes;
        page->mapKind = kFreePage;
        page->flags |= kPageFreed | kPageChanged;
        DropBuffer(context, page);
    }
    ReleasePage(context, page);
    return status;
}

Status FreePageChain(StorageContext* context, uint32_t first, uint16_t kind, uint32_t fileId,
                     StorageTransaction* transaction) {
    uint32_t left = context->totalPages;
    for (uint32_t number = first; number != 0;) {
        if (left-- == 0) return Corrupt(context);
        CachePage* page = nullptr;
        Status status = GetPageChecked(context, number, kind, &page, fileId, transaction);
        if (status != kOk) return status;
        if ((page->flags & kPageFreed) != 0) {
            ReleasePage(context, page);
            return Corrupt(context);  // the chain came back to a page it passed
        }
        number = HeaderOf(page->buffer)->nextPage;
        status = FreePage(context, page);
        if (status != kOk) return status;
    }
    return kOk;
}

Status WriteCachedPage(StorageContext* context, CachePage* page) {
    if ((page->flags & kPageDirty) == 0) return kOk;
    if (page->buffer != nullptr) {
        const Status status = WritePage(context, page->buffer, page->number);
        if (status != kOk) return status;
    }
    MarkClean(context, page);
    return kOk;
}

namespace {

// Dirty pages gathered for writing: sorted, so that neighbours go out in one transfer.
struct WriteBatch {
    static constexpr uint32_t kCapacity = 64;
    CachePage* pages[kCapacity];
    uint32_t count = 0;

    void Add(CachePage* page) {
        uint32_t at = count++;
        for (; at > 0 && pages[at - 1]->number > page->number; --at) pages[at] = pages[at - 1];
        pages[at] = page;
    }
};

Status WriteRun(StorageContext* context, CachePage* const* pages, uint32_t count) {
    const void* buffers[WriteBatch::kCapacity];
    buffers[0] = pages[0]->buffer;
    for (uint32_t i = 1; i < count; ++i) buffers[i] = pages[i]->buffer;
    const Status status = WritePages(context, buffers, count, pages[0]->number);
    if (status != kOk) return status;
    for (uint32_t i = 0; i < count; ++i) MarkClean(context, pages[i]);
    return kOk;
}

Status WriteOut(StorageContext* context, WriteBatch* batch) {
    for (uint32_t begin = 0; begin < batch->count;) {
        uint32_t end = begin + 1;
        while (end < batch->count && batch->pages[end]->number == batch->pages[end - 1]->number + 1)
            ++end;
        const Status status = WriteRun(context, batch->pages + begin, end - begin);
        if (status != kOk) return status;
        begin = end;
    }
    batch->count = 0;
    return kOk;
}

}  // namespace

Status WriteTransactionPages(StorageContext* context, StorageTransaction* transaction,
                             uint16_t mask, uint16_t wanted) {
    WriteBatch batch;
    for (CachePage* page = transaction->pages.head; page != nullptr; page = page->txNext) {
        if ((page->flags & kPageDirty) == 0 || page->buffer == nullptr) continue;
        if ((page->flags & mask) != wanted) continue;
        batch.Add(page);
        if (batch.count < WriteBatch::kCapacity) continue;
        const Status status = WriteOut(context, &batch);
        if (status != kOk) return status;
    }
    return WriteOut(context, &batch);
}

void EvictPages(StorageContext* context) {
    EvictDownTo(context, context->cacheLimit);
}

void DestroyCache(StorageContext* context) {
    context->pageTable.ForEach([context](CachePage* page) { DestroyDescriptor(context, page); });
    while (CachePage* page = context->spareDescriptors.Take()) platform::HeapRelease(page);
    while (SpareBuffer* buffer = context->spareBuffers.Take()) platform::HeapRelease(buffer);
    context->cachedPages = 0;
    context->dirtyMapPages.Reset();
    context->freeCounts.Reset();
    context->spare.Clear();
}

void DiscardPage(StorageContext* context, CachePage* page) {
    page->pinCount = 0;
    DestroyDescriptor(context, page);
}

}  // namespace storage
