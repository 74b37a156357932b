// SPDX-License-Identifier: MIT
// The pages of a check run: how they are read and where changes to them go.
#include <algorithm>

#include "storage/check/CheckRun.h"

namespace storage {

namespace {

constexpr uint32_t kWindowBytes = 16384;  // or one page, when that is larger

uint32_t WindowPages(const StorageContext* context) {
    return std::max(kWindowBytes >> context->pageShift, 1u);
}

// The window with the page, filled if need be, in front of the others.
Status FindWindow(CheckRun* run, uint32_t page) {
    StorageContext* context = run->context;
    const uint32_t pages = WindowPages(context), size = context->pageSize;
    const uint32_t first = page / pages * pages;
    PageWindow* const begin = run->windows;
    PageWindow* const end = begin + kPageWindows;
    PageWindow* found =
        std::find_if(begin, end, [first](const PageWindow& w) { return w.first == first; });
    const bool read = found == end;
    if (read) --found;
    std::rotate(begin, found, found + 1);
    if (!read) return kOk;
    if (begin->bytes == nullptr)
        begin->bytes = static_cast<uint8_t*>(platform::HeapAllocate(size_t{pages} * size));
    if (begin->bytes == nullptr) return kNoMemory;
    const uint32_t count = std::min(pages, run->pages - first);
    const Status status = ReadPageRaw(context->file, begin->bytes, count * size,
                                      uint64_t{context->basePage} + first, size);
    begin->first = status == kOk ? first : kUnknownPages;
    return status;
}

}  // namespace

// A run that is not deep reads no page that is not in use.
Status ReadForCheck(CheckRun* run, uint32_t page, uint8_t* buffer) {
    StorageContext* context = run->context;
    if (!run->deep) return ReadPage(context, buffer, page);
    const Status status = FindWindow(run, page);
    if (status != kOk) return status;
    const size_t offset = size_t{page - run->windows[0].first} * context->pageSize;
    std::memcpy(buffer, run->windows[0].bytes + offset, context->pageSize);
    if (context->byteSwapped) ConvertPage(context, buffer, Direction::Read);
    return kOk;
}

void ForgetRead(CheckRun* run, uint32_t page) {
    const uint32_t pages = WindowPages(run->context);
    for (PageWindow& window : run->windows)
        if (window.first == page / pages * pages) window.first = kUnknownPages;
}

Status LoadChecked(CheckRun* run, uint32_t page, uint8_t* buffer) {
    const Status status = ReadForCheck(run, page, buffer);
    const bool isHeader = run->digests[page].kind == kHeaderPage;
    if (status == kOk)
        std::memcpy(buffer, &run->digests[page],
                    isHeader ? sizeof(HeaderPageHeader) : sizeof(PageHeader));
    return status;
}

Status StoreChecked(CheckRun* run, uint32_t page, const uint8_t* buffer) {
    std::memcpy(&run->digests[page], buffer, sizeof(PageDigest));
    run->marks[page] &= static_cast<uint8_t>(~kMarkChanged);
    if (run->repair) run->clean = 0;
    ForgetRead(run, page);
    return WritePage(run->context, buffer, page);
}

}  // namespace storage
