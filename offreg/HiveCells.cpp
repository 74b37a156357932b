// SPDX-License-Identifier: MIT
#include "offreg/HiveCells.h"

#include <algorithm>

namespace offreg::cells {

using namespace format;

// 0 where no bin begins.
uint32_t CellSpace::BinSize(uint32_t at) const {
    const uint8_t* head = bins_ + at;
    const uint32_t size = Load<uint32_t>(head + bin::kSize);
    const bool sound = HasMagic(head, bin::kMagic) && Load<uint32_t>(head + bin::kOffset) == at &&
                       size % kBlockSize == 0 && size <= length_ - at;
    return sound ? size : 0;
}

uint32_t CellSpace::Open(const uint8_t* bins, uint32_t length) {
    bins_ = bins;
    length_ = length;
    binEnd_.resize(length / kBlockSize);
    claimed_.resize(length / 8);
    uint32_t lost = 0;
    for (uint32_t at = 0; at < length;) {
        const uint32_t size = BinSize(at);
        std::fill_n(binEnd_.begin() + at / kBlockSize, size / kBlockSize, at + size);
        if (size == 0) ++lost;
        at += size != 0 ? size : kBlockSize;
    }
    return lost;
}

bool CellSpace::Find(uint32_t offset, uint32_t minimum, Cell* cell) const {
    if (offset % 8 != 0 || offset >= length_) return false;
    const uint32_t stored = Load<uint32_t>(bins_ + offset);
    const uint32_t size = 0 - stored;  // in use: the stored size is negative
    const uint32_t end = binEnd_[offset / kBlockSize];
    if (stored < 0x80000000 || size % 8 != 0 || end < offset || size > end - offset) return false;
    *cell = {bins_ + offset + kCellHead, size - kCellHead};
    return cell->size >= minimum;
}

bool CellSpace::Claim(uint32_t offset, uint32_t minimum, Cell* cell) {
    if (!Find(offset, minimum, cell) || claimed_[offset / 8]) return false;
    claimed_[offset / 8] = true;
    return true;
}

}  // namespace offreg::cells
