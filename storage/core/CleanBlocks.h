// Blocks of the file as it stands on disk, below the cache of pages. A page is read alone; the one
// behind it brings its neighbours along. They hold no change: whatever is written goes through them
// to the file.
#pragma once

#include <cstdint>

namespace platform {
class PageFile;
}

namespace storage {

// At most 8 MiB, taken as it is needed. Offsets and sizes are bytes of the file.
class CleanBlocks {
  public:
    static constexpr uint32_t kLimit = 8 << 20;

    CleanBlocks() = default;
    CleanBlocks(const CleanBlocks&) = delete;
    CleanBlocks& operator=(const CleanBlocks&) = delete;
    ~CleanBlocks();

    // The page of `size` bytes (a power of two, and so is its share of the offset) at `offset`,
    // zeros behind the end of the file; null when there is no memory or *error is not 0. It may
    // be used until the next call. *wasRead tells whether the file was asked.
    const uint8_t* Find(platform::PageFile* file, uint64_t offset, uint32_t size, bool* wasRead,
                        uint32_t* error);
    // What was written to the file, all of it or (`bytes` null) perhaps a part.
    void Note(uint64_t offset, const void* bytes, uint32_t size);
    // Nothing is known of the file any more.
    void Forget();

  private:
    struct Place {
        uint64_t block;
        uint8_t* bytes;
        uint32_t known;  // a bit for each sector that was read
    };
    static constexpr uint32_t kShift = 12;
    static constexpr uint32_t kBytes = 1u << kShift;
    static constexpr uint32_t kSector = 256;
    static constexpr uint32_t kAllKnown = (1u << (kBytes / kSector)) - 1;
    static constexpr uint32_t kPlaces = kLimit >> kShift;
    static constexpr uint32_t kRun = 4;  // blocks read at once by one who reads on

    Place* PlaceOf(uint64_t block) { return &places_[block % kPlaces]; }
    bool Knows(uint64_t offset, uint32_t size);
    // A place for the block, with nothing known that is of another one.
    Place* Take(uint64_t block);
    bool Read(platform::PageFile* file, uint64_t offset, uint32_t size, uint32_t* error);
    // The block and those behind it.
    bool ReadRun(platform::PageFile* file, uint64_t block, uint32_t* error);

    Place* places_ = nullptr;
};

}  // namespace storage
