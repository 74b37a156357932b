#include "storage/core/CleanBlocks.h"

#include <algorithm>
#include <cstring>

#include "platform/Heap.h"
#include "platform/PageFile.h"

namespace storage {

CleanBlocks::~CleanBlocks() {
    for (uint32_t i = 0; places_ != nullptr && i < kPlaces; ++i)
        platform::HeapRelease(places_[i].bytes);
    platform::HeapRelease(places_);
}

namespace {

// The bits of the sectors of a page within its block.
uint32_t SectorsOf(uint64_t offset, uint32_t size, uint32_t block, uint32_t sector) {
    const uint32_t first = static_cast<uint32_t>(offset % block) / sector;
    const uint32_t count = (size + sector - 1) / sector;
    return ((1u << count) - 1) << first;
}

}  // namespace

bool CleanBlocks::Knows(uint64_t offset, uint32_t size) {
    const Place* place = PlaceOf(offset >> kShift);
    const uint32_t wanted = SectorsOf(offset, size, kBytes, kSector);
    return place->block == offset >> kShift && (place->known & wanted) == wanted;
}

CleanBlocks::Place* CleanBlocks::Take(uint64_t block) {
    Place* place = PlaceOf(block);
    if (place->block != block) place->known = 0;
    place->block = block;
    if (place->bytes == nullptr)
        place->bytes = static_cast<uint8_t*>(platform::HeapAllocate(kBytes));
    return place->bytes != nullptr ? place : nullptr;
}

bool CleanBlocks::Read(platform::PageFile* file, uint64_t offset, uint32_t size, uint32_t* error) {
    Place* place = Take(offset >> kShift);
    if (place == nullptr) return false;
    uint8_t* bytes = place->bytes + (offset & (kBytes - 1));
    uint32_t done = 0;
    *error = file->Read(offset, bytes, size, &done);
    if (*error != 0) {
        place->known = 0;
        return false;
    }
    std::memset(bytes + done, 0, size - done);
    place->known |= SectorsOf(offset, size, kBytes, kSector);
    return true;
}

bool CleanBlocks::ReadRun(platform::PageFile* file, uint64_t block, uint32_t* error) {
    uint8_t bytes[kRun << kShift];
    uint32_t done = 0;
    *error = file->Read(block << kShift, bytes, sizeof bytes, &done);
    if (*error != 0) return false;
    std::memset(bytes + done, 0, sizeof bytes - done);
    for (uint32_t i = 0; i < kRun; ++i) {
        Place* place = Take(block + i);
        if (place == nullptr) return i != 0;
        std::memcpy(place->bytes, bytes + (i << kShift), kBytes);
        place->known = kAllKnown;
    }
    return true;
}

const uint8_t* CleanBlocks::Find(platform::PageFile* file, uint64_t offset, uint32_t size,
                                 bool* wasRead, uint32_t* error) {
    *wasRead = false;
    *error = 0;
    if (size > 1u << kShift) return nullptr;
    if (places_ == nullptr)
        places_ = static_cast<Place*>(platform::HeapAllocateZeroed(kPlaces * sizeof(Place)));
    if (places_ == nullptr) return nullptr;
    if (!Knows(offset, size)) {
        *wasRead = true;
        const bool readsOn = offset >= kSector && Knows(offset - kSector, kSector);
        const bool done =
            readsOn ? ReadRun(file, offset >> kShift, error) : Read(file, offset, size, error);
        if (!done) return nullptr;
    }
    return PlaceOf(offset >> kShift)->bytes + (offset & (kBytes - 1));
}

void CleanBlocks::Note(uint64_t offset, const void* bytes, uint32_t size) {
    if (places_ == nullptr) return;
    const auto* from = static_cast<const uint8_t*>(bytes);
    for (uint64_t at = offset; at < offset + size;) {
        const uint64_t block = at >> kShift;
        const uint32_t within = static_cast<uint32_t>(at & ((1u << kShift) - 1));
        const auto part =
            static_cast<uint32_t>(std::min<uint64_t>((1u << kShift) - within, offset + size - at));
        Place* place = PlaceOf(block);
        if (place->block == block && place->bytes != nullptr) {
            if (bytes != nullptr)
                std::memcpy(place->bytes + within, from + (at - offset), part);
            else
                place->known = 0;
        }
        at += part;
    }
}

void CleanBlocks::Forget() {
    for (uint32_t i = 0; places_ != nullptr && i < kPlaces; ++i) places_[i].known = 0;
}

}  // namespace storage
