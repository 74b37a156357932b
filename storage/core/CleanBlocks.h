// SPDX-License-Identifier: MIT
// What is known of the file as it stands on disk, below the cache of pages: small pages for long,
// and the blocks last read for a while. A page is read alone; one near it brings its block along,
// and who goes on behind that the next ones. They hold no change: whatever is written goes through
// them to the file.
#pragma once

#include "storage/core/SmallPages.h"

namespace platform {
class PageFile;
}

namespace storage {

// At most 8 MiB, taken as it is needed; what the small pages do not take, blocks may. Offsets and
// sizes are bytes of the file.
class CleanBlocks {
  public:
    static constexpr uint32_t kLimit = 8 << 20;

    CleanBlocks() = default;
    CleanBlocks(const CleanBlocks&) = delete;
    CleanBlocks& operator=(const CleanBlocks&) = delete;
    ~CleanBlocks();

    // The page of `size` bytes (a power of two, and so is its share of the offset) at `offset`,
    // zeros behind the end of the file; null when there is no memory or *error is not 0. It may
    // be used until the next call. *wasRead tells whether the file was asked. `readsOn` says that
    // the pages behind it are wanted, too. All pages have one size until Forget.
    PageBytes Find(platform::PageFile* file, uint64_t offset, uint32_t size, bool readsOn,
                   bool* wasRead, uint32_t* error);
    // The same where it is kept for long; null elsewhere. `place` is that of SmallPages::Find.
    PageBytes FindSmall(uint64_t offset, uint32_t* place) {
        const PageBytes found = small_.Find(offset, place);
        if (found.bytes != nullptr) last_ = offset;
        return found;
    }
    void Prefetch(uint64_t offset, uint32_t place) const { small_.Prefetch(offset, place); }
    // Copies what is known of the `size` bytes at `offset` from there on, and answers how much.
    uint32_t Copy(uint64_t offset, uint8_t* bytes, uint32_t size);
    // What was read of the file elsewhere: kept where that drives nothing out, or when it comes
    // again after a short while.
    void Offer(uint64_t offset, const uint8_t* bytes, uint32_t size);
    // What was written to the file, all of it or (`bytes` null) perhaps a part.
    void Note(uint64_t offset, const void* bytes, uint32_t size);
    // Nothing is known of the file any more.
    void Forget();

  private:
    struct Place {
        uint8_t* bytes;
        uint32_t block;  // its number
        uint32_t known;  // a bit for each sector that was read
    };
    static constexpr uint64_t kNone = 0xFFFFFFFFFFFFFFFF;
    static constexpr uint32_t kShift = 12;
    static constexpr uint32_t kBytes = 1u << kShift;
    static constexpr uint32_t kSector = 256;
    static constexpr uint32_t kAllKnown = (1u << (kBytes / kSector)) - 1;
    static constexpr uint32_t kPlaces = 1024;
    static constexpr uint64_t kMostBlocks = 0xFFFFFFF0;
    static constexpr uint32_t kRun = 4;  // blocks read at once by one who reads on
    static constexpr uint32_t kOffered = 64;
    struct Table {
        Place places[kPlaces];
        uint16_t used[kPlaces];      // those with memory
        uint32_t offered[kOffered];  // where what Offer came with last began, in sectors
    };
    // The small pages may come to pass it by one piece before blocks are given up.
    static constexpr uint32_t kBudget = kLimit - sizeof(Table) - (64 << 10);
    static_assert(SmallPages::kLimit + 16 * kRun * kBytes < kBudget);

    bool HasTable();
    Place* PlaceOf(uint64_t block) { return &table_->places[block % kPlaces]; }
    Place* UsedPlace(uint32_t at) { return &table_->places[table_->used[at]]; }
    bool Knows(uint64_t offset, uint32_t size);
    bool ReadsOn(uint64_t offset);
    bool HasRoom() const {
        return small_.HeldBytes() + uint64_t{count_} * kBytes + kBytes <= kBudget;
    }
    // A place for the block, with nothing known that is of another one.
    Place* Take(uint64_t block);
    uint8_t* TakeMemory(Place* place);
    bool Read(platform::PageFile* file, uint64_t offset, uint32_t size, uint32_t* error);
    enum class Taking { None, Room, Always };
    void NoteBlocks(uint64_t offset, const uint8_t* bytes, uint32_t size, Taking taking);
    bool IsOf(const Place* place, uint64_t block) const {
        return place->block == block && place->bytes != nullptr;
    }
    bool ReadMissing(platform::PageFile* file, uint64_t offset, uint32_t size, bool readsOn,
                     uint32_t* error);
    // The block and those behind it.
    bool ReadRun(platform::PageFile* file, uint64_t block, uint32_t* error);

    SmallPages small_;
    Table* table_ = nullptr;
    uint32_t count_ = 0;      // of the places in use
    uint32_t oldest_ = 0;     // of them, the next one to lose its memory
    uint32_t pageSize_ = 0;   // 0: nobody has asked for one yet
    uint64_t last_ = kNone;   // the page found last
    uint32_t cameAlong_ = 0;  // pages found that had come with their neighbours
};

}  // namespace storage
