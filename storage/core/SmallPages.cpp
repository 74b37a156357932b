// SPDX-License-Identifier: MIT
#include "storage/core/SmallPages.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "platform/Heap.h"
#include "storage/core/Format.h"

namespace storage {

namespace {

// How many bytes of a page of records are to be kept: those of its records, and all that are not 0.
uint32_t UsedBytes(const uint8_t* page, uint32_t size) {
    uint32_t used = size;
    const auto word = [page](uint32_t at) { return LoadU64(page, at); };
    while (used >= 64 &&
           (word(used - 8) | word(used - 16) | word(used - 24) | word(used - 32) | word(used - 40) |
            word(used - 48) | word(used - 56) | word(used - 64)) == 0)
        used -= 64;
    while (used >= 8 && LoadU64(page, used - 8) == 0) used -= 8;
    const uint32_t end = LoadU16(page, offsetof(HeaderPageHeader, endOffset));
    return std::max({used, kRecordsStart, end <= size ? end : 0});
}

}  // namespace

SmallPages::~SmallPages() {
    for (uint8_t* chunk : chunks_)
        if (chunk != nullptr) platform::HeapRelease(chunk);
    platform::HeapRelease(buckets_);
}

void SmallPages::Drop(uint64_t offset, uint64_t bytes) {
    if (next_ == oldest_) return;
    const uint64_t size = uint64_t{1} << pageShift_;
    for (uint64_t at = offset & ~(size - 1); at < offset + bytes; at += size)
        if (Record* record = Look(at)) Record::Set(record->page, kNoPage);
}

bool SmallPages::Keep(uint64_t offset, const uint8_t* page, uint32_t size) {
    const auto shift = static_cast<uint32_t>(std::countr_zero(size));
    if (shift != pageShift_) Forget();
    pageShift_ = shift;
    Record* record = Look(offset);
    const bool ofRecords = LoadU16(page, 0) == kHeaderPage && offset >> shift < kNoPage;
    const uint32_t used = ofRecords ? UsedBytes(page, size) : 0;
    const bool keeps = ofRecords && used <= kMostBytes;
    if (record != nullptr && (!keeps || used > record->count)) {
        Record::Set(record->page, kNoPage);
        record = nullptr;
    }
    if (!keeps) return false;
    if (record == nullptr) record = Append(static_cast<uint32_t>(offset >> shift), used);
    if (record == nullptr) return false;
    std::memcpy(record->Bytes(), page, used);
    if (used < record->count) std::memset(record->Bytes() + used, 0, record->count - used);
    return true;
}

SmallPages::Record* SmallPages::Append(uint32_t page, uint32_t bytes) {
    // An object that was just made mostly gets a record more.
    const uint32_t count = (std::max(bytes, kFreshRecordsEnd + kRecordHeaderSize) + 1) & ~1u;
    const auto units = static_cast<uint32_t>(sizeof(Record) + count) / 2;
    if (room_ == 0 && !GrowIndex() && buckets_ == nullptr) return nullptr;
    const uint32_t at = next_ % kChunkUnits;
    if ((at == 0 || at + units > kChunkUnits) && !BeginChunk()) return nullptr;
    Record* record = At(next_);
    uint32_t* bucket = BucketOf(page);
    Record::Set(record->page, page);
    Record::Set(record->older, *bucket);
    record->count = static_cast<uint16_t>(count);
    *bucket = next_;
    next_ += units;
    if (room_ != 0) --room_;
    return record;
}

// What stood in the chunk before is gone.
bool SmallPages::BeginChunk() {
    if (next_ > UINT32_MAX - 2 * kChunkUnits) {  // the places come to their end
        std::memset(buckets_, 0, bucketCount_ * sizeof *buckets_);
        next_ = oldest_ = kChunkUnits;
        beganAnew_ = true;
    }
    next_ = (next_ + kChunkUnits - 1) / kChunkUnits * kChunkUnits;
    if (next_ >= kChunks * kChunkUnits)
        oldest_ = std::max(oldest_, next_ - (kChunks - 1) * kChunkUnits);
    uint8_t*& chunk = chunks_[next_ / kChunkUnits % kChunks];
    if (chunk != nullptr) return true;
    chunk = static_cast<uint8_t*>(platform::HeapAllocate(kChunkBytes));
    if (chunk != nullptr) held_ += kChunkBytes;
    return chunk != nullptr;
}

// Each chain becomes two, in their order.
bool SmallPages::GrowIndex() {
    const uint32_t before = bucketCount_;
    if (before == kMostBuckets) return true;
    const uint32_t after = before == 0 ? kFirstBuckets : 2 * before;
    auto* grown = static_cast<uint32_t*>(platform::HeapAllocateZeroed(after * sizeof *buckets_));
    if (grown == nullptr) return false;
    for (uint32_t i = 0; i < before; ++i) {
        Record* last[2] = {nullptr, nullptr};
        for (uint32_t place = buckets_[i]; place >= oldest_;) {
            Record* record = At(place);
            const uint32_t half = (record->Page() & before) != 0;
            if (last[half] == nullptr)
                grown[i + half * before] = place;
            else
                Record::Set(last[half]->older, place);
            last[half] = record;
            place = record->Older();
        }
        for (Record* record : last)
            if (record != nullptr) Record::Set(record->older, 0);
    }
    platform::HeapRelease(buckets_);
    buckets_ = grown;
    bucketCount_ = after;
    room_ = after - before;
    held_ += room_ * sizeof *buckets_;
    return true;
}

}  // namespace storage
