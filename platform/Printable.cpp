// SPDX-License-Identifier: MIT
#include <array>

#include "platform/PrintableRanges.h"
#include "platform/Text.h"

namespace platform {
namespace {

using Bitmap = std::array<uint32_t, 0x10000 / 32>;

constexpr Bitmap MakeBitmap() {
    Bitmap bitmap{};
    for (const UnitRange& range : kPrintableRanges) {
        for (uint32_t unit = range.first; unit <= range.last;) {
            // Whole words at once where a range covers them: the compiler counts every step.
            if (unit % 32 == 0 && unit + 31u <= range.last) {
                bitmap[unit / 32] = 0xFFFFFFFFu;
                unit += 32;
            } else {
                bitmap[unit / 32] |= 1u << (unit % 32);
                ++unit;
            }
        }
    }
    return bitmap;
}

constexpr Bitmap kPrintable = MakeBitmap();

}  // namespace

bool IsPrintable(WChar unit) noexcept {
    const auto value = static_cast<uint16_t>(unit);
    return (kPrintable[value / 32] >> (value % 32) & 1u) != 0;
}

}  // namespace platform
