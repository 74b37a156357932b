// SPDX-License-Identifier: MIT
// The cells of a hive file whose bytes are not trusted.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "offreg/HiveFormat.h"

namespace offreg::cells {

inline bool HasMagic(const uint8_t* at, const char* magic) {
    return std::memcmp(at, magic, std::strlen(magic)) == 0;
}

// The content of a cell in use, less its size field.
struct Cell {
    const uint8_t* data = nullptr;
    uint32_t size = 0;

    uint16_t Word(uint32_t at) const { return format::Load<uint16_t>(data + at); }
    uint32_t Number(uint32_t at) const { return format::Load<uint32_t>(data + at); }
    bool Is(const char* magic) const { return HasMagic(data, magic); }
};

// The bins of a file, and which of their cells have found their owner.
class CellSpace {
  public:
    // Goes from bin to bin up to `length`; the number of blocks that belong to none.
    uint32_t Open(const uint8_t* bins, uint32_t length);
    // The cell at `offset` with at least `minimum` bytes of content. False for anything else.
    bool Find(uint32_t offset, uint32_t minimum, Cell* cell) const;
    // The same for a cell that belongs to one owner: false also when it was claimed before.
    bool Claim(uint32_t offset, uint32_t minimum, Cell* cell);

  private:
    uint32_t BinSize(uint32_t at) const;

    const uint8_t* bins_ = nullptr;
    uint32_t length_ = 0;
    std::vector<uint32_t> binEnd_;  // for each block; 0 for one that belongs to no bin
    std::vector<bool> claimed_;     // for each 8 bytes
};

}  // namespace offreg::cells
