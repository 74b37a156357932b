// SPDX-License-Identifier: MIT
#include "tests/support/Damage.h"

#include <algorithm>
#include <cstring>
#include <iterator>

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

uint32_t Damage::AnyNumber() {
    return Roll(4) == 0 ? random_() : Roll(pages_ + 3);
}

uint16_t Damage::AnyKind() {
    constexpr uint16_t kKinds[] = {0, 31, 32, 33, 34, 36, 37, 40, 43, 9, 65520, 77};
    return kKinds[Roll(std::size(kKinds))];
}

void Damage::Set16(uint8_t* page, size_t at, uint32_t value) {
    Put16(page, at, value);
    if (foreign_) Reverse16(page + at);
}

void Damage::Set32(uint8_t* page, size_t at, uint32_t value) {
    Put32(page, at, value);
    if (foreign_) Reverse32(page + at);
}

void Damage::StrikeMap() {
    const uint32_t page = 1 + Roll(pages_ - 1), group = pageSize_ / 2;
    Set16(Page(page / group * group), 2 * (page % group), AnyKind());
}

// Numbers, the root's entry, the limits and the flags.
void Damage::StrikeSuperblock() {
    constexpr uint32_t kFields[] = {0,   4,   8,   152, 156, 160, 164, 168, 172,
                                    176, 180, 184, 188, 236, 240, 244, 252};
    Set32(Page(1), kFields[Roll(std::size(kFields))], Roll(2) == 0 ? 0 : AnyNumber());
}

// A number where a link, a record's link or an entry's page may stand.
void Damage::StrikeReference(uint8_t* page) {
    const uint32_t number = AnyNumber();
    if (Roll(2) == 0)
        Set32(page, 4 * (1 + Roll(7)), number);
    else
        Set32(page, 4 * Roll(pageSize_ / 4), number);
}

// A page, or the entries and records in it, a second time.
void Damage::CopyPage() {
    const uint32_t from = AnyPage(), to = AnyPage();
    const size_t kept = Roll(2) == 0 ? 0 : 32;
    std::memmove(Page(to) + kept, Page(from) + kept, pageSize_ - kept);
}

void Damage::Strike() {
    const uint32_t number = AnyPage();
    uint8_t* page = Page(number);
    switch (Roll(12)) {
        case 0:
            page[Roll(pageSize_)] ^= static_cast<uint8_t>(1u << Roll(8));
            return;
        case 1:
            page[Roll(36)] = static_cast<uint8_t>(random_());
            return;
        case 2:
        case 3:
            return StrikeReference(page);
        case 4:
            return Set16(page, 32, Roll(pageSize_ + 40));
        case 5:
            return StrikeMap();
        case 6:
            return Set16(page, 0, AnyKind());
        case 7:
            std::memset(page + Roll(pageSize_ / 2), 0, pageSize_ / 2);
            return;
        case 8:
            return StrikeSuperblock();
        case 9:
            return CopyPage();
        case 10:
            Set32(page, 12 + 4 * Roll(2), number);
            return;
        default:
            std::generate_n(page, pageSize_, [&] { return static_cast<uint8_t>(random_()); });
    }
}

}  // namespace support::container
