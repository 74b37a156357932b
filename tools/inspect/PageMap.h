// SPDX-License-Identifier: MIT
// The page map of a container file, and what a page is for.
#pragma once

#include <array>
#include <cstdint>
#include <functional>

#include "tools/inspect/Image.h"

namespace fbr {

// What the map says that a page is for.
enum class Use : uint8_t {
    kFree,
    kMap,
    kSuperblock,
    kHeader,
    kEntry,
    kName,
    kData,
    kRootData,
    kLink,
    kRecord,
    kPageList,
    kUnknown,
};
inline constexpr size_t kUses = 12;

struct UseLook {
    const char* name;     // as docs/container-format.md has it
    const char* plain;    // in plain words
    const char* json;     // as a member
    char letter;          // in a picture of letters
    uint8_t terminal;     // of the 256 colours
    const char* picture;  // colour in a picture for a browser
};
const UseLook& LookOf(Use use);

// The use that a kind of page, or a slot of the map, stands for. 0 and what counts as free are
// free.
Use UseOfKind(uint16_t kind);

using UseCounts = std::array<uint64_t, kUses>;

// Tells `each` the use of every page in turn, as the map has it, or as the page itself has it where
// its map page is damaged. The number of damaged map pages.
uint32_t WalkMap(const Image& image, const std::function<void(uint32_t page, Use use)>& each);
// How many pages behind the end of the file are in use to the map.
uint32_t PagesBehindEnd(const Image& image);
// The slot of one page; its map page must be readable.
uint16_t SlotOf(const Image& image, uint32_t page);

}  // namespace fbr
