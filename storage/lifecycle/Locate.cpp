// SPDX-License-Identifier: MIT
#include "storage/lifecycle/Locate.h"

#include "storage/core/PageIo.h"

namespace storage {

namespace {

bool HasBootSignature(const uint8_t* block, uint32_t end) {
    return block[end - 2] == 0x55 && block[end - 1] == 0xAA;
}

bool IsVolume(const uint8_t* block) {
    const uint32_t sector = LoadU16(block, 11);
    return sector >= 512 && (sector & (sector - 1)) == 0 && LoadU16(block, 14) != 0 &&
           (block[16] == 1 || block[16] == 2);
}

// How many blocks to go on from this one; 0 when the trail ends here.
uint64_t StepBehindVolume(const uint8_t* block, uint64_t fileSize) {
    const uint32_t sector = LoadU16(block, 11);
    if (kLocateBlock >= sector && !HasBootSignature(block, sector)) return 0;
    uint64_t sectors = LoadU16(block, 19);
    if (sectors == 0) sectors = LoadU32(block, 32);
    if (fileSize / sector <= sectors) return 0;
    return sector * sectors / kLocateBlock;
}

uint64_t Step(const uint8_t* block, uint64_t fileSize) {
    if (IsVolume(block)) return StepBehindVolume(block, fileSize);
    if (!HasBootSignature(block, 512)) return 0;
    return LoadU32(block, 454);
}

}  // namespace

Status LocateContainer(platform::PageFile* file, uint64_t fileSize, ContainerPlace* place) {
    *place = ContainerPlace{};
    uint8_t* const block = place->head;
    // The base rises at each turn and stays inside the file.
    while (place->base * kLocateBlock < fileSize) {
        const Status status =
            ReadPageRaw(file, block, sizeof place->head, place->base, kLocateBlock);
        if (status != kOk) return status;
        const uint16_t signature = LoadU16(block, 2);
        if (signature == kSignature || signature == kSwappedSignature) {
            place->byteSwapped = signature == kSwappedSignature;
            place->pageShift = LoadU16(block, 0);
            if (place->byteSwapped) place->pageShift = Swap16(place->pageShift);
            return kOk;
        }
        const uint64_t step = Step(block, fileSize);
        if (step == 0) break;
        place->base += step;
    }
    return kNotContainer;
}

Status ProbePageShift(platform::PageFile* file, uint64_t base, uint32_t* shift) {
    for (uint32_t tried = kMinPageShift; tried <= kMaxPageShift; ++tried) {
        const uint64_t units = (uint64_t{1} << tried) / 256;
        uint8_t block[256];
        const Status status = ReadPageRaw(file, block, sizeof block,
                                          base * kLocateBlock / 256 / units * units + units, 256);
        if (status != kOk) return status;
        const uint16_t kind = LoadU16(block, 0);
        if (kind != kSuperblockPage && Swap16(kind) != kSuperblockPage) continue;
        *shift = tried;
        return kOk;
    }
    return kNotContainer;
}

}  // namespace storage
