// SPDX-License-Identifier: MIT
#include "storage/core/OneCall.h"

#include "platform/Errors.h"
#include "storage/core/PageCache.h"
#include "storage/core/SwitchMark.h"

namespace storage {

namespace {

bool FindEnds(StorageTransaction* transaction, OneCall* call, uint32_t* last) {
    uint32_t vital = 0, listed = 0, highest = 0;
    for (const CachePage* page = transaction->pages.head; page != nullptr; page = page->txNext) {
        if ((page->flags & kPageFreed) != 0 || page->buffer == nullptr ||
            (page->flags & kPageDirty) == 0)
            continue;
        ++listed;
        if ((page->flags & kPageNew) != 0) {
            call->first = page->number < call->first ? page->number : call->first;
            highest = page->number > highest ? page->number : highest;
        } else if ((page->flags & kPageVital) != 0) {
            ++vital;
            *last = page->number;
        }
    }
    return vital == 1 && listed <= kMostSwitched && call->first < *last && highest < *last;
}

}  // namespace

void PlanOneCall(StorageContext* context, StorageTransaction* transaction, OneCall* call) {
    uint32_t last = 0;
    if (!HasSwitchList(context) || !FindEnds(transaction, call, &last)) return;
    const uint32_t count = last - call->first + 1;
    if (count > OneCall::kMost || count * context->pageSize > OneCall::kMostBytes) return;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t number = call->first + i;
        CachePage* page = context->IsMapPage(number) ? nullptr : context->pageTable.Find(number);
        if (page == nullptr || page->buffer == nullptr) return;
        const bool written = page->transaction == transaction &&
                             ((page->flags & kPageNew) != 0 || number == last) &&
                             (page->flags & kPageFreed) == 0;
        if (!written && (page->flags & kPageDirty) != 0) return;
        call->pages[i] = page;
        call->buffers[i] = page->buffer;
    }
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
