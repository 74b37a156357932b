// SPDX-License-Identifier: MIT
#include "storage/core/RedoLog.h"

#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/core/PageMap.h"

namespace storage {

namespace {

// Where the numbers of logged pages begin in a second-level page, and the first head in a
// first-level page.
constexpr uint32_t kSecondNext = 16;
constexpr uint32_t kSecondNumbers = 20;
constexpr uint32_t kFirstHeads = 16;

uint32_t NumbersPerPage(const StorageContext* context) {
    return (context->pageSize - kSecondNumbers) / 4;
}

bool IsImaged(const CachePage* page) {
    constexpr uint16_t kMask = kPageDirty | kPageNew | kPageFreed | kPageVital;
    return (page->flags & kMask) == (kPageDirty | kPageVital) && page->buffer != nullptr;
}

}  // namespace

RedoLog::~RedoLog() {
    for (const uint32_t page : pages_) SetPageKind(context_, page, kFreePage, false);
}

// Free pages, taken in memory alone: on disk they stay free.
Status RedoLog::Take(uint32_t count) {
    uint8_t* scratch = AllocateBuffer(context_);
    if (scratch == nullptr || !pages_.Reserve(count)) {
        ReleaseBuffer(context_, scratch);
        return kNoMemory;
    }
    Status status = kOk;
    for (uint32_t i = 0; i < count && status == kOk; ++i) {
        uint32_t number = 0;
        status = AllocatePageNumber(context_, kDataPage, &number, scratch);
        if (status == kFull && context_->spare.Count() != 0) {
            status = GiveBackSparePages(context_);
            if (status == kOk) status = AllocatePageNumber(context_, kDataPage, &number, scratch);
        }
        if (status == kOk) pages_.Add(number);
    }
    ReleaseBuffer(context_, scratch);
    return status;
}

Status RedoLog::WriteRaw(uint8_t* buffer, uint32_t place) {
    const uint32_t size = context_->pageSize;
    return WritePageRaw(context_, context_->file, buffer, size,
                        uint64_t{context_->basePage} + place, size);
}

// As the page will lie in its place, with the kind it is to have there beside that which it has.
Status RedoLog::WriteImage(const CachePage* page, uint32_t place, uint8_t* buffer) {
    std::memcpy(buffer, page->buffer, context_->pageSize);
    HeaderOf(buffer)->pageNumber = page->number;
    if (context_->byteSwapped) ConvertPage(context_, buffer, Direction::Write);
    Store<uint16_t>(buffer, 2, LoadU16(buffer, 0));
    return WriteRaw(buffer, place);
}

Status RedoLog::WriteLists(uint32_t images, uint8_t* buffer) {
    const bool swapped = context_->byteSwapped;
    const auto put = [&](uint32_t offset, uint32_t value) {
        Store<uint32_t>(buffer, offset, swapped ? Swap32(value) : value);
    };
    const uint32_t most = NumbersPerPage(context_);
    const uint32_t lists = pages_.Count() - images - 1;
    Status status = kOk;
    for (uint32_t list = 0; list < lists && status == kOk; ++list) {
        std::memset(buffer, 0, context_->pageSize);
        if (list + 1 < lists) put(kSecondNext, pages_[images + list + 1]);
        const uint32_t end = images - list * most < most ? images - list * most : most;
        for (uint32_t i = 0; i < end; ++i) put(kSecondNumbers + 4 * i, pages_[list * most + i]);
        status = WriteRaw(buffer, pages_[images + list]);
    }
    if (status != kOk) return status;
    std::memset(buffer, 0, context_->pageSize);
    put(kFirstHeads, pages_[images]);
    return WriteRaw(buffer, pages_.Last());
}

Status RedoLog::Write(StorageTransaction* transaction, uint32_t count) {
    const uint32_t lists = (count + NumbersPerPage(context_) - 1) / NumbersPerPage(context_);
    Status status = Take(count + lists + 1);
    uint8_t* buffer = status == kOk ? AllocateBuffer(context_) : nullptr;
    if (status == kOk && buffer == nullptr) status = kNoMemory;
    uint32_t done = 0;
    for (CachePage* page = transaction->pages.head; page != nullptr && status == kOk;
         page = page->txNext)
        if (IsImaged(page)) status = WriteImage(page, pages_[done++], buffer);
    if (status == kOk) status = WriteLists(count, buffer);
    ReleaseBuffer(context_, buffer);
    return status;
}

Status RedoLog::SwitchOn() {
    Superblock* super = context_->Super();
    const uint32_t head = pages_.Last();
    super->logPending = 1;
    super->flags |= kFlagChainedLog;
    super->logChainHead = head;
    const Status status = BeginChange(context_);
    if (status == kOk) return kOk;
    super->logPending = 0;
    super->logChainHead = 0;
    return status;
}

void RedoLog::SwitchOff() {
    context_->Super()->logPending = 0;
    context_->Super()->logChainHead = 0;
}

}  // namespace storage
