// SPDX-License-Identifier: MIT
#include "tools/inspect/Lists.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "storage/core/Format.h"
#include "tools/inspect/Fields.h"

namespace fbr {
namespace {

using storage::LoadU16;
using storage::LoadU32;

uint32_t LinkOf(const PageBytes& page, uint16_t type) {
    uint32_t end = 0;
    for (const RecordView& record : RecordsOf(page, &end))
        if (record.type == type) return record.link;
    return 0;
}

}  // namespace

void Lists::Add(uint32_t number, const PageBytes& page) {
    Part& part = parts_[number];
    const auto word = [&page](size_t offset) { return LoadU32(page.data(), offset); };
    part.owner = word(offsetof(storage::PageHeader, fileId));
    part.level = word(offsetof(storage::PageHeader, level));
    part.prev = word(offsetof(storage::PageHeader, prevPage));
    part.next = word(offsetof(storage::PageHeader, nextPage));
}

void Lists::Vote(uint32_t number, uint32_t parent) {
    const auto at = parts_.find(number);
    if (at != parts_.end()) ++at->second.votes[parent];
}

// The owner of the page in front, when that leads here; else 0.
uint32_t Lists::Referring(uint32_t number, const Part& part) const {
    if (part.prev <= storage::kSuperblockNumber || part.prev >= image_.PageCount()) return 0;
    const PageBytes page = image_.Page(part.prev);
    const uint16_t kind = LoadU16(page.data(), 0);
    const uint32_t link = kind == storage::kHeaderPage ? LinkOf(page, storage::kDirectoryRecord)
                          : kind == storage::kEntryPage
                              ? LoadU32(page.data(), offsetof(storage::PageHeader, nextPage))
                              : 0;
    return link == number ? LoadU32(page.data(), offsetof(storage::PageHeader, fileId)) : 0;
}

void Lists::Settle(uint32_t number, Part& part) {
    const auto most =
        std::max_element(part.votes.begin(), part.votes.end(),
                         [](const auto& a, const auto& b) { return a.second < b.second; });
    const uint32_t told = most == part.votes.end() ? 0 : most->first;
    const uint32_t referring = Referring(number, part);
    if (told == part.owner || referring == part.owner) return;
    part.isDoubtful = told != referring && (told != 0 || referring != 0);
    if (referring != 0)
        part.owner = referring;
    else if (told != 0)
        part.owner = told;
}

void Lists::Settle() {
    for (auto& [number, part] : parts_) Settle(number, part);
    for (const auto& [number, part] : parts_) owners_[part.owner].push_back(number);
}

uint32_t Lists::OwnerOf(uint32_t number) const {
    const auto at = parts_.find(number);
    return at == parts_.end() ? 0 : at->second.owner;
}

bool Lists::EndsByLinks(uint32_t key, uint32_t first) const {
    std::set<uint32_t> seen;
    for (uint32_t number = first; number != 0;) {
        const auto at = parts_.find(number);
        if (at == parts_.end() || at->second.owner != key || !seen.insert(number).second)
            return false;
        number = at->second.next;
    }
    return true;
}

bool Lists::EndsByLevels(const std::vector<uint32_t>& pages) const {
    std::map<uint32_t, uint32_t> levels;
    for (const uint32_t number : pages) levels.emplace(parts_.at(number).level, number);
    return !levels.empty() && levels.rbegin()->first == levels.size() - 1 &&
           parts_.at(levels.rbegin()->second).next == 0;
}

std::string Lists::FaultOf(uint32_t key, uint32_t headerPage) const {
    const auto at = owners_.find(key);
    const std::vector<uint32_t> pages = at == owners_.end() ? std::vector<uint32_t>() : at->second;
    for (const uint32_t number : pages)
        if (parts_.at(number).isDoubtful)
            return fmt::format("page {} of it may be that of another key", number);
    if (EndsByLevels(pages)) return "";
    if (headerPage == 0) return "the page that leads to it is lost";
    std::set<uint32_t> seen;
    uint32_t first = 0;
    for (uint32_t number = headerPage; number != 0 && first == 0;) {
        if (number >= image_.PageCount() || !seen.insert(number).second)
            return "a page that leads to it is lost";
        const PageBytes page = image_.Page(number);
        if (LoadU16(page.data(), 0) != storage::kHeaderPage ||
            LoadU32(page.data(), offsetof(storage::PageHeader, fileId)) != key)
            return "a page that leads to it is lost";
        first = LinkOf(page, storage::kDirectoryRecord);
        number = LoadU32(page.data(), offsetof(storage::PageHeader, nextPage));
    }
    return EndsByLinks(key, first) ? "" : "a page of it is lost";
}

}  // namespace fbr
