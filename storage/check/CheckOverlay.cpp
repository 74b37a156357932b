// SPDX-License-Identifier: MIT
#include "storage/check/CheckOverlay.h"

#include <algorithm>

namespace storage {

CheckOverlay::~CheckOverlay() {
    Drop();
    delete file_;
}

void CheckOverlay::Drop() {
    pages_.ForEach([this](Page* page) {
        pages_.Remove(page);
        platform::HeapRelease(page);
    });
}

bool CheckOverlay::Changed(NumberList* pages) {
    if (!pages->Reserve(pages_.Count())) return false;
    pages_.ForEach([pages](Page* page) { pages->Add(page->number); });
    std::sort(pages->begin(), pages->end());
    return true;
}

platform::Error CheckOverlay::Read(uint64_t offset, void* buffer, uint32_t bytes, uint32_t* done) {
    const platform::Error error = file_->Read(offset, buffer, bytes, done);
    if (error != 0 || pages_.Count() == 0) return error;
    const uint64_t end = offset + *done;
    for (uint64_t at = offset; at < end; at = (at / pageSize_ + 1) * pageSize_) {
        Page* page = pages_.Find(static_cast<uint32_t>(at / pageSize_));
        if (page == nullptr) continue;
        const uint64_t within = at % pageSize_;
        std::memcpy(static_cast<uint8_t*>(buffer) + (at - offset), page->Bytes() + within,
                    std::min(end - at, pageSize_ - within));
    }
    return error;
}

platform::Error CheckOverlay::Write(uint64_t offset, const void* const* buffers, uint32_t count,
                                    uint32_t bytes, uint32_t* done) {
    *done = 0;
    if (bytes != pageSize_ || offset % pageSize_ != 0) return platform::kErrorInvalidParameter;
    uint32_t number = static_cast<uint32_t>(offset / pageSize_);
    for (uint32_t i = 0; i < count; ++i, ++number) {
        Page* page = pages_.Find(number);
        if (page == nullptr) {
            page = static_cast<Page*>(platform::HeapAllocate(sizeof(Page) + pageSize_));
            if (page == nullptr) return platform::kErrorOutOfMemory;
            page->number = number;
            if (!pages_.Insert(page)) {
                platform::HeapRelease(page);
                return platform::kErrorOutOfMemory;
            }
        }
        std::memcpy(page->Bytes(), buffers[i], bytes);
        *done += bytes;
    }
    return platform::kErrorSuccess;
}

}  // namespace storage
