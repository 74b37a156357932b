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

CleanBlocks::Place* CleanBlocks::Empty(uint64_t block) {
    Place* place = PlaceOf(block);
    place->block = 0;
    if (place->bytes == nullptr)
        place->bytes = static_cast<uint8_t*>(platform::HeapAllocate(kBytes));
    return place->bytes != nullptr ? place : nullptr;
}

bool CleanBlocks::Read(platform::PageFile* file, uint64_t block, uint32_t* error) {
    Place* place = Empty(block);
    if (place == nullptr) return false;
    uint32_t done = 0;
    *error = file->Read(block << kShift, place->bytes, kBytes, &done);
    if (*error != 0) return false;
    std::memset(place->bytes + done, 0, kBytes - done);
    place->block = block + 1;
    return true;
}

bool CleanBlocks::ReadRun(platform::PageFile* file, uint64_t block, uint32_t* error) {
    uint8_t bytes[kRun << kShift];
    uint32_t done = 0;
    *error = file->Read(block << kShift, bytes, sizeof bytes, &done);
    if (*error != 0) return false;
    std::memset(bytes + done, 0, sizeof bytes - done);
    for (uint32_t i = 0; i < kRun; ++i) {
        Place* place = Empty(block + i);
        if (place == nullptr) return i != 0;
        std::memcpy(place->bytes, bytes + (i << kShift), kBytes);
        place->block = block + i + 1;
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
    const uint64_t block = offset >> kShift;
    if (!Holds(block)) {
        *wasRead = true;
        const bool readsOn = block != 0 && Holds(block - 1);
        if (!(readsOn ? ReadRun(file, block, error) : Read(file, block, error))) return nullptr;
    }
    return PlaceOf(block)->bytes + (offset & ((1u << kShift) - 1));
}

void CleanBlocks::Note(uint64_t offset, const void* bytes, uint32_t size) {
    if (places_ == nullptr) return;
    const auto* from = static_cast<const uint8_t*>(bytes);
    for (uint64_t at = offset; at < offset + size;) {
        const uint64_t block = at >> kShift;
        const uint32_t within = static_cast<uint32_t>(at & ((1u << kShift) - 1));
        const auto part = static_cast<uint32_t>(
            std::min<uint64_t>((1u << kShift) - within, offset + size - at));
        if (Holds(block)) {
            Place* place = PlaceOf(block);
            if (bytes != nullptr)
                std::memcpy(place->bytes + within, from + (at - offset), part);
            else
                place->block = 0;
        }
        at += part;
    }
}

void CleanBlocks::Forget() {
    for (uint32_t i = 0; places_ != nullptr && i < kPlaces; ++i) places_[i].block = 0;
}

}  // namespace storage
