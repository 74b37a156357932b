// SPDX-License-Identifier: MIT
#include "tools/inspect/PageMap.h"

#include "storage/core/Format.h"

namespace fbr {
namespace {

constexpr std::array<UseLook, kUses> kLooks = {{
    {"free", "unused", "free", '.', 236, "#eceff1"},
    {"map page", "what each page is for", "map", 'M', 201, "#d500f9"},
    {"superblock", "the container as a whole", "superblock", 'S', 196, "#d50000"},
    {"HeaderPage", "keys and values", "header", 'H', 33, "#1e88e5"},
    {"EntryPage", "lists of keys and values", "entry", 'E', 34, "#43a047"},
    {"NamePage", "long names", "name", 'N', 226, "#fdd835"},
    {"DataPage", "data", "data", 'D', 250, "#90a4ae"},
    {"RootDataPage", "data of the root", "rootData", 'R', 51, "#00bcd4"},
    {"LinkPage", "targets of links", "link", 'L', 141, "#b39ddb"},
    {"record page", "a foreign record", "record", 'F', 137, "#8d6e63"},
    {"PageListPage", "lists of data pages", "pageList", 'P', 208, "#fb8c00"},
    {"unknown kind", "damage", "unknown", '?', 231, "#000000"},
}};

}  // namespace

const UseLook& LookOf(Use use) {
    return kLooks[static_cast<size_t>(use)];
}

Use UseOfKind(uint16_t kind) {
    if (storage::SlotIsFree(kind)) return Use::kFree;
    switch (kind) {
        case storage::kSuperblockPage:
            return Use::kSuperblock;
        case storage::kHeaderPage:
            return Use::kHeader;
        case storage::kEntryPage:
            return Use::kEntry;
        case storage::kNamePage:
            return Use::kName;
        case storage::kDataPage:
            return Use::kData;
        case storage::kRootDataPage:
            return Use::kRootData;
        case storage::kLinkPage:
            return Use::kLink;
        case storage::kRecordPage:
            return Use::kRecord;
        case storage::kPageListPage:
            return Use::kPageList;
        default:
            return Use::kUnknown;
    }
}

uint32_t WalkMap(const Image& image, const std::function<void(uint32_t page, Use use)>& each) {
    PageBytes map;
    bool good = false;
    uint32_t damaged = 0;
    for (uint32_t page = 0, slot = 0; page < image.PageCount(); ++page, ++slot) {
        if (image.IsMapPage(page)) {
            map = image.Page(page);
            slot = 0;
            // A group that has no map yet has nothing but zeros there.
            const uint16_t first = storage::LoadU16(map.data(), 0);
            good = first == image.PageShift() || (first == 0 && page != 0);
            if (!good) ++damaged;
            each(page, Use::kMap);
        } else {
            const uint16_t kind = good ? storage::LoadU16(map.data(), 2 * size_t{slot})
                                       : storage::LoadU16(image.Page(page).data(), 0);
            each(page, UseOfKind(kind));
        }
    }
    return damaged;
}

uint32_t PagesBehindEnd(const Image& image) {
    if (image.PageCount() == 0) return 0;
    const uint32_t group = image.PageSize() / 2, first = (image.PageCount() - 1) / group * group;
    const PageBytes map = image.Page(first);
    if (storage::LoadU16(map.data(), 0) != image.PageShift()) return 0;
    uint32_t pages = 0;
    for (uint32_t slot = image.PageCount() - first; slot < group; ++slot)
        pages += UseOfKind(storage::LoadU16(map.data(), 2 * size_t{slot})) != Use::kFree;
    return pages;
}

uint16_t SlotOf(const Image& image, uint32_t page) {
    const uint32_t group = image.PageSize() / 2;
    const PageBytes map = image.Page(page / group * group);
    return storage::LoadU16(map.data(), 2 * size_t{page % group});
}

}  // namespace fbr
