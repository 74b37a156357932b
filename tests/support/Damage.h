// SPDX-License-Identifier: MIT
// Damage to the bytes of a container file, of every kind that its format knows.
#pragma once

#include <random>

#include "tests/support/ContainerBytes.h"

namespace support::container {

class Damage {
  public:
    // `file` is a container of page size `pageSize` with page 0 at `base` bytes.
    Damage(Bytes& file, uint32_t pageSize, bool foreign, uint32_t seed, size_t base = 0);

    // Changes one thing: some bytes, a page, a link, an end offset, a slot of the map, a field of
    // the superblock; or lays pages in a circle or in another's place.
    void Strike();

  private:
    uint32_t Roll(uint32_t below) { return static_cast<uint32_t>(random_() % below); }
    template <size_t kCount>
    uint32_t OneOf(const uint16_t (&values)[kCount]) {
        return values[Roll(kCount)];
    }
    uint8_t* Page(uint32_t number) { return file_.data() + base_ + size_t{number} * pageSize_; }
    uint32_t AnyPage();
    uint32_t AnyNumber() { return Roll(4) == 0 ? random_() : Roll(pages_ + 3); }
    uint32_t AnyKind() { return OneOf({0, 31, 32, 33, 34, 36, 37, 40, 43, 9, 65520, 77}); }
    void Set16(uint8_t* page, size_t at, uint32_t value);
    void Set32(uint8_t* page, size_t at, uint32_t value);

    Bytes& file_;
    uint32_t pageSize_;
    bool foreign_;
    size_t base_;
    uint32_t pages_;
    std::mt19937 random_;
};

}  // namespace support::container
