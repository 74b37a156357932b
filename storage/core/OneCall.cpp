// SPDX-License-Identifier: MIT
#include "storage/core/OneCall.h"

#include <algorithm>

#include "platform/Errors.h"
#include "storage/core/PageCache.h"
#include "storage/core/SwitchMark.h"

namespace storage {

namespace {

bool IsWritten(const CachePage* page) {
    return (page->flags & (kPageFreed | kPageDirty)) == kPageDirty && page->buffer != nullptr;
}

// The one page that refers to what is new; null where there are more. *listed counts it with all
// that are written behind it.
CachePage* FindLast(const StorageTransaction* transaction, uint32_t* listed) {
    CachePage* last = nullptr;
    for (CachePage* page = transaction->pages.head; page != nullptr; page = page->txNext) {
        if (!IsWritten(page) || (page->flags & kPageNew) != 0) continue;
        ++*listed;
        if ((page->flags & kPageVital) == 0) continue;
        if (last != nullptr) return nullptr;
        last = page;
    }
    return last;
}

// The first new page that is near enough before the last one.
uint32_t FindFirst(const StorageContext* context, const StorageTransaction* transaction,
                   uint32_t last, uint32_t* listed) {
    const uint32_t most = std::min(OneCall::kMost, OneCall::kMostBytes / context->pageSize);
    uint32_t first = last;
    for (const CachePage* page = transaction->pages.head; page != nullptr; page = page->txNext) {
        if ((page->flags & kPageNew) == 0 || !IsWritten(page) || last - page->number >= most)
            continue;
        ++*listed;
        first = std::min(first, page->number);
    }
    return first;
}

}  // namespace

void PlanOneCall(StorageContext* context, StorageTransaction* transaction, OneCall* call) {
    uint32_t listed = 0;
    if (!HasSwitchList(context)) return;
    CachePage* const last = FindLast(transaction, &listed);
    if (last == nullptr) return;
    call->first = FindFirst(context, transaction, last->number, &listed);
    if (call->first == last->number || listed > kMostSwitched) return;
    const uint32_t count = last->number - call->first + 1;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t number = call->first + i;
        CachePage* page = i + 1 == count               ? last
                          : context->IsMapPage(number) ? nullptr
                                                       : context->pageTable.Find(number);
        if (page == nullptr || page->buffer == nullptr) return;
        const bool isNew = page->transaction == transaction && (page->flags & kPageNew) != 0;
        if (!(isNew && IsWritten(page)) && page != last && (page->flags & kPageDirty) != 0) return;
        call->pages[i] = page;
        call->buffers[i] = page->buffer;
    }
    for (uint32_t i = 0; i + 1 < count; ++i)
        if ((call->pages[i]->flags & kPageDirty) != 0) call->pages[i]->flags |= kPageInCall;
    call->count = count;
}

// What stands in between is in the file as it was, so that there is nothing new to know of it.
Status WriteOneCall(StorageContext* context, const OneCall& call) {
    const uint32_t size = context->pageSize;
    const uint64_t offset = (uint64_t{context->basePage} + call.first) * size;
    uint32_t done = 0;
    const platform::Error error =
        context->file->Write(offset, call.buffers, call.count, size, &done);
    const bool whole = error == 0 && done == call.count * size;
    for (uint32_t i = 0; i < call.count; ++i) {
        const bool dirty = (call.pages[i]->flags & kPageDirty) != 0;
        if (whole && !dirty) continue;
        context->blocks.Note(offset + uint64_t{i} * size, whole ? call.buffers[i] : nullptr, size);
        if (whole) MarkClean(context, call.pages[i]);
    }
    if (error != 0) return static_cast<Status>(error);
    if (!whole) return static_cast<Status>(platform::kErrorDiskFull);
    context->wroteSinceLock = true;
    return kOk;
}

}  // namespace storage
