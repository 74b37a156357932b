// SPDX-License-Identifier: MIT
#include "offreg/Names.h"

#include <algorithm>

#include "offreg/UpcaseRuns.h"

namespace offreg {
namespace {

struct UpcaseTable {
    constexpr UpcaseTable() {
        for (uint32_t unit = 0; unit < 0x10000; ++unit) upper[unit] = static_cast<uint16_t>(unit);
        for (const UpcaseRun& run : kUpcaseRuns) {
            for (uint32_t unit = run.first; unit <= run.last; unit += run.step) {
                upper[unit] = static_cast<uint16_t>(static_cast<int32_t>(unit) + run.delta);
            }
        }
    }
    uint16_t upper[0x10000];
};

// Made by the compiler: under Wine a static of a function takes two handles that the unloading of
// this library does not give back.
constexpr UpcaseTable kTable;

}  // namespace

uint16_t Upcase(WChar unit) noexcept {
    return kTable.upper[static_cast<uint16_t>(unit)];
}

int CompareNames(WStringView a, WStringView b) noexcept {
    const size_t common = std::min(a.size(), b.size());
    for (size_t i = 0; i < common; ++i) {
        if (a[i] == b[i]) continue;
        const int difference = int{kTable.upper[static_cast<uint16_t>(a[i])]} -
                               int{kTable.upper[static_cast<uint16_t>(b[i])]};
        if (difference != 0) return difference;
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

uint32_t HashName(WStringView name) noexcept {
    uint32_t hash = 0;
    for (const WChar unit : name) hash = hash * 37 + Upcase(unit);
    return hash;
}

}  // namespace offreg
