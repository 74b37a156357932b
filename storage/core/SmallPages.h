// SPDX-License-Identifier: MIT
// Pages of records as they stand in the file, without the zeros that most of their bytes are. They
// are kept in the order in which they came, and the oldest give way.
#pragma once

#include <cstdint>

#include "platform/Prefetch.h"

namespace storage {

// The first bytes of a page; all behind `count` are zeros. `bytes` null: there is no such page.
struct PageBytes {
    const uint8_t* bytes = nullptr;
    uint32_t count = 0;
};

// Places are counted in units of 2 bytes and never used twice; what is older than `oldest_` is
// gone. So nothing has to be taken out of the index: a chain ends where it leads to what is gone.
class SmallPages {
  public:
    static constexpr uint32_t kLimit = 7808 << 10;  // bytes, taken as they are needed

    SmallPages() = default;
    SmallPages(const SmallPages&) = delete;
    SmallPages& operator=(const SmallPages&) = delete;
    ~SmallPages();

    // The page at the byte `offset`, as Keep was given it last. It may be used until the next Keep.
    // *place, if given, is where it was found the last time, or 0, and becomes where it is found.
    PageBytes Find(uint64_t offset, uint32_t* place = nullptr) const {
        Record* record = Look(offset, place);
        return record == nullptr ? PageBytes{} : PageBytes{record->Bytes(), record->count};
    }
    // The page is about to be looked for; `place` is what Find left of it, or 0.
    void Prefetch(uint64_t offset, uint32_t place = 0) const {
        if (buckets_ == nullptr) return;
        if (!IsPlace(place)) place = *BucketOf(static_cast<uint32_t>(offset >> pageShift_));
        if (place >= oldest_) platform::Prefetch(At(place), kMostlyUsed);
    }
    // Keeps the page of `size` bytes (a power of two, the same for all pages) if it is one of
    // records and there is memory; what was known of it is forgotten in any case. True when it is
    // kept.
    bool Keep(uint64_t offset, const uint8_t* page, uint32_t size);
    // Nothing is known of the pages that begin in the bytes from `offset` on.
    void Drop(uint64_t offset, uint64_t bytes);
    // Nothing is known of any page.
    void Forget() { oldest_ = next_; }
    uint64_t HeldBytes() const { return held_; }
    // Does a new page drive an old one out?
    bool IsFull() const { return next_ >= kChunks * kChunkUnits; }

  private:
    struct Record {         // numbers in halves, so that it stands at every place
        uint16_t page[2];   // its number, or kNoPage
        uint16_t older[2];  // place of the one before it in the chain
        uint16_t count;     // bytes behind this

        uint32_t Page() const { return page[0] | uint32_t{page[1]} << 16; }
        uint32_t Older() const { return older[0] | uint32_t{older[1]} << 16; }
        uint8_t* Bytes() { return reinterpret_cast<uint8_t*>(this + 1); }
        static void Set(uint16_t* halves, uint32_t number) {
            halves[0] = static_cast<uint16_t>(number);
            halves[1] = static_cast<uint16_t>(number >> 16);
        }
    };
    static constexpr uint32_t kNoPage = 0xFFFFFFFF;
    static constexpr uint32_t kMostlyUsed = 192;  // bytes of a record, or less
    static constexpr uint32_t kMostBytes = 512;   // of a page that is kept
    static constexpr uint32_t kChunkBytes = 64 << 10;
    static constexpr uint32_t kChunkUnits = kChunkBytes / 2;
    static constexpr uint32_t kFirstBuckets = 256;
    static constexpr uint32_t kMostBuckets = 64 << 10;
    static constexpr uint32_t kChunks = (kLimit - kMostBuckets * 4) / kChunkBytes;

    // Pages that stand together are asked for together, and mostly one after the other.
    uint32_t* BucketOf(uint32_t page) const { return &buckets_[page & (bucketCount_ - 1)]; }
    Record* At(uint32_t place) const {
        return reinterpret_cast<Record*>(chunks_[place / kChunkUnits % kChunks] +
                                         place % kChunkUnits * 2);
    }
    // Does a record begin there, if one ever did? Nobody can tell once places were used twice.
    bool IsPlace(uint32_t place) const { return place >= oldest_ && place < next_ && !beganAnew_; }
    Record* Look(uint64_t offset, uint32_t* place = nullptr) const {
        const uint64_t page = offset >> pageShift_;
        if (buckets_ == nullptr || page >= kNoPage) return nullptr;
        if (place != nullptr && IsPlace(*place) && At(*place)->Page() == page) return At(*place);
        for (uint32_t at = *BucketOf(static_cast<uint32_t>(page)); at >= oldest_;) {
            Record* record = At(at);
            if (record->Page() == page) {
                if (place != nullptr) *place = at;
                return record;
            }
            at = record->Older();
        }
        return nullptr;
    }
    // A new record with room for `bytes`; null without memory.
    Record* Append(uint32_t page, uint32_t bytes);
    bool BeginChunk();
    bool GrowIndex();

    uint32_t* buckets_ = nullptr;  // places of the newest of each chain
    uint32_t bucketCount_ = 0;
    uint32_t pageShift_ = 0;
    uint32_t room_ = 0;            // records that may still come before the index grows
    uint32_t next_ = kChunkUnits;  // where the next record begins; 0 is no place
    uint32_t oldest_ = kChunkUnits;
    bool beganAnew_ = false;  // places were used twice
    uint64_t held_ = 0;
    uint8_t* chunks_[kChunks] = {};
};

}  // namespace storage
