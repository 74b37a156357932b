// SPDX-License-Identifier: MIT
#include "tests/support/Damage.h"

#include <algorithm>
#include <cstring>

namespace support::container {

Damage::Damage(Bytes& file, uint32_t pageSize, bool foreign, uint32_t seed, size_t base)
    : file_(file),
      pageSize_(pageSize),
      foreign_(foreign),
      base_(base),
      pages_(static_cast<uint32_t>((file.size() - base) / pageSize)),
      random_(seed) {}

// The first pages are struck less: without them all is lost.
uint32_t Damage::AnyPage() {
    const uint32_t page = Roll(pages_);
    return page < 3 && Roll(8) != 0 ? pages_ - 1 : page;
}

void Damage::Set16(uint8_t* page, size_t at, uint32_t value) {
    Put16(page, at, value);
    if (foreign_) Reverse16(page + at);
}

void Damage::Set32(uint8_t* page, size_t at, uint32_t value) {
    Put32(page, at, value);
    if (foreign_) Reverse32(page + at);
}

void Damage::Strike() {
    const uint32_t number = AnyPage();
    uint8_t* page = Page(number);
    switch (Roll(13)) {
        case 0:
            page[Roll(pageSize_)] ^= static_cast<uint8_t>(1u << Roll(8));
            return;
        case 1:
            page[Roll(36)] = static_cast<uint8_t>(random_());
            return;
        case 2:  // where a link stands
            return Set32(page, 4 * (1 + Roll(7)), AnyNumber());
        case 3:  // where a record's link or an entry's page may stand
            return Set32(page, 4 * Roll(pageSize_ / 4), AnyNumber());
        case 4:  // an end offset
            return Set16(page, 32, Roll(pageSize_ + 40));
        case 5: {  // a slot of the map
            const uint32_t mapped = 1 + Roll(pages_ - 1), group = pageSize_ / 2;
            return Set16(Page(mapped / group * group), 2 * (mapped % group), AnyKind());
        }
        case 6:
            return Set16(page, 0, AnyKind());
        case 7:
            std::memset(page + Roll(pageSize_ / 2), 0, pageSize_ / 2);
            return;
        case 8:  // numbers, the root's entry, the limits and the flags of the superblock
            return Set32(Page(1),
                         OneOf({0, 4, 8, 152, 156, 160, 164, 168, 172, 176, 180, 184, 188, 236, 240,
                                244, 252}),
                         Roll(2) == 0 ? 0 : AnyNumber());
        case 9:  // a page a second time
            std::memmove(page, Page(AnyPage()), pageSize_);
            return;
        case 10:  // or the entries and records in it
            std::memmove(page + 32, Page(AnyPage()) + 32, pageSize_ - 32);
            return;
        case 11:
            return Set32(page, 12 + 4 * Roll(2), number);
        default:
            std::generate_n(page, pageSize_, [&] { return static_cast<uint8_t>(random_()); });
    }
}

}  // namespace support::container
