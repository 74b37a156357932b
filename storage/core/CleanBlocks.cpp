// SPDX-License-Identifier: MIT
#include "storage/core/CleanBlocks.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/Heap.h"
#include "platform/PageFile.h"

namespace storage {

CleanBlocks::~CleanBlocks() {
    while (count_ != 0) platform::HeapRelease(UsedPlace(--count_)->bytes);
    platform::HeapRelease(table_);
}

namespace {

// The bits of the sectors of a page within its block.
uint32_t SectorsOf(uint64_t offset, uint32_t size, uint32_t block, uint32_t sector) {
    const uint32_t first = static_cast<uint32_t>(offset % block) / sector;
    const uint32_t count = (size + sector - 1) / sector;
    return ((1u << count) - 1) << first;
}

}  // namespace

bool CleanBlocks::HasTable() {
    if (table_ == nullptr)
        table_ = static_cast<Table*>(platform::HeapAllocateZeroed(sizeof(Table)));
    return table_ != nullptr;
}

bool CleanBlocks::Knows(uint64_t offset, uint32_t size) {
    const Place* place = PlaceOf(offset >> kShift);
    const uint32_t wanted = SectorsOf(offset, size, kBytes, kSector);
    return place->block == offset >> kShift && place->bytes != nullptr &&
           (place->known & wanted) == wanted;
}

CleanBlocks::Place* CleanBlocks::Take(uint64_t block) {
    Place* place = PlaceOf(block);
    if (place->block != block) place->known = 0;
    place->block = static_cast<uint32_t>(block);
    if (place->bytes == nullptr) place->bytes = TakeMemory(place);
    return place->bytes != nullptr ? place : nullptr;
}

// New memory, or that of another place in turn.
uint8_t* CleanBlocks::TakeMemory(Place* place) {
    place->known = 0;
    if (HasRoom() || count_ == 0) {
        auto* bytes = static_cast<uint8_t*>(platform::HeapAllocate(kBytes));
        if (bytes != nullptr)
            table_->used[count_++] = static_cast<uint16_t>(place - table_->places);
        return bytes;
    }
    oldest_ = oldest_ + 1 < count_ ? oldest_ + 1 : 0;
    Place* loser = UsedPlace(oldest_);
    table_->used[oldest_] = static_cast<uint16_t>(place - table_->places);
    return std::exchange(loser->bytes, nullptr);
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
    if (done < size) std::memset(bytes + done, 0, size - done);
    place->known |= SectorsOf(offset, size, kBytes, kSector);
    return true;
}

bool CleanBlocks::ReadRun(platform::PageFile* file, uint64_t block, uint32_t* error) {
    uint8_t bytes[kRun << kShift];
    uint32_t done = 0;
    *error = file->Read(block << kShift, bytes, sizeof bytes, &done);
    if (*error != 0) return false;
    if (done < sizeof bytes) std::memset(bytes + done, 0, sizeof bytes - done);
    // The first one last: a place may lose its memory to the next one.
    for (uint32_t i = kRun; i-- > 0;) {
        Place* place = Take(block + i);
        if (place == nullptr) {
            if (i == 0) return false;
            continue;
        }
        std::memcpy(place->bytes, bytes + (i << kShift), kBytes);
        place->known = kAllKnown;
    }
    return true;
}

// Is this the page behind one that is known, or a little behind the last one?
bool CleanBlocks::ReadsOn(uint64_t offset) {
    const bool isNear = offset > last_ && offset - last_ <= kRun * kBytes;
    return isNear || (offset >= kSector && Knows(offset - kSector, kSector));
}

// The page's block, behind a whole one some that go on; the page alone where its block would drive
// out another one and nothing says that more of it is wanted.
bool CleanBlocks::ReadMissing(platform::PageFile* file, uint64_t offset, uint32_t size,
                              bool readsOn, uint32_t* error) {
    if (!readsOn && !HasRoom()) return Read(file, offset, size, error);
    const uint64_t block = offset >> kShift;
    const bool goesOn = block >= 1 && Knows((block - 1) << kShift, kBytes);
    return goesOn ? ReadRun(file, block, error) : Read(file, block << kShift, kBytes, error);
}

PageBytes CleanBlocks::Find(platform::PageFile* file, uint64_t offset, uint32_t size, bool readsOn,
                            bool* wasRead, uint32_t* error) {
    *wasRead = false;
    *error = 0;
    if (size > kBytes || offset >> kShift >= kMostBlocks) return {};
    pageSize_ = size;
    if (!HasTable()) return {};
    for (; small_.HeldBytes() + uint64_t{count_} * kBytes > kBudget && count_ != 0; --count_)
        platform::HeapRelease(std::exchange(UsedPlace(count_ - 1)->bytes, nullptr));
    const PageBytes small = small_.Find(offset);
    if (small.bytes == nullptr) readsOn = readsOn || ReadsOn(offset);
    last_ = offset;
    if (small.bytes != nullptr) return small;
    const bool cameAlong = Knows(offset, size);
    if (!cameAlong) {
        *wasRead = true;
        if (!ReadMissing(file, offset, size, readsOn, error)) return {};
    }
    const uint8_t* page = PlaceOf(offset >> kShift)->bytes + (offset & (kBytes - 1));
    // Who goes through more than there is room for must not drive out each page before he comes
    // back to it.
    if (!(cameAlong || readsOn) || !small_.IsFull() || ++cameAlong_ % 8 == 0)
        small_.Keep(offset, page, size);
    return {page, size};
}

void CleanBlocks::NoteBlocks(uint64_t offset, const uint8_t* bytes, uint32_t size, Taking taking) {
    for (uint64_t at = offset; at < offset + size;) {
        const uint64_t block = at >> kShift;
        const uint32_t within = static_cast<uint32_t>(at & (kBytes - 1));
        const auto part =
            static_cast<uint32_t>(std::min<uint64_t>(kBytes - within, offset + size - at));
        Place* place = PlaceOf(block);
        const bool hasRoom = place->bytes == nullptr && HasRoom();
        if (!IsOf(place, block) &&
            (taking == Taking::Always || (taking == Taking::Room && hasRoom)))
            Take(block);
        if (IsOf(place, block)) {
            if (bytes == nullptr) {
                place->known &= ~SectorsOf(at, part, kBytes, kSector);
            } else {
                std::memcpy(place->bytes + within, bytes + (at - offset), part);
                if ((within | part) % kSector == 0)
                    place->known |= SectorsOf(at, part, kBytes, kSector);
            }
        }
        at += part;
    }
}

// What is not kept as a small page comes to a block while there is room, and drives nothing out.
void CleanBlocks::Note(uint64_t offset, const void* bytes, uint32_t size) {
    const auto* page = static_cast<const uint8_t*>(bytes);
    bool kept = false;
    if (page != nullptr && size == pageSize_)
        kept = small_.Keep(offset, page, size);
    else
        small_.Drop(offset, size);
    if (table_ == nullptr) return;
    const bool mayTake =
        page != nullptr && size <= kBytes && offset >> kShift < kMostBlocks && !kept;
    NoteBlocks(offset, page, size, mayTake ? Taking::Room : Taking::None);
}

uint32_t CleanBlocks::Copy(uint64_t offset, uint8_t* bytes, uint32_t size) {
    uint32_t done = 0;
    while (table_ != nullptr && done < size) {
        const uint64_t at = offset + done;
        const uint32_t within = static_cast<uint32_t>(at & (kBytes - 1));
        const uint32_t part = std::min(kBytes - within, size - done);
        if (at >> kShift >= kMostBlocks || !Knows(at, part)) break;
        std::memcpy(bytes + done, PlaceOf(at >> kShift)->bytes + within, part);
        done += part;
    }
    return done;
}

void CleanBlocks::Offer(uint64_t offset, const uint8_t* bytes, uint32_t size) {
    if ((offset + size) >> kShift >= kMostBlocks || !HasTable()) return;
    const auto sector = static_cast<uint32_t>(offset / kSector);
    uint32_t& offered = table_->offered[sector * 2654435769u >> 26];
    const bool again = std::exchange(offered, sector) == sector;
    NoteBlocks(offset, bytes, size, again ? Taking::Always : Taking::Room);
}

void CleanBlocks::Forget() {
    for (uint32_t i = 0; i < count_; ++i) UsedPlace(i)->known = 0;
    small_.Forget();
    last_ = kNone;
    pageSize_ = 0;
}

}  // namespace storage
