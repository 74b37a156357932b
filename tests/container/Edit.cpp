// SPDX-License-Identifier: MIT
#include "tests/container/Edit.h"

#include <algorithm>
#include <sstream>

namespace support::container {

namespace {

struct Spot {
    uint32_t page;  // or what is no place
    size_t at = 0;
};

Spot Find(Builder* b, const std::string& place) {
    std::istringstream in(place);
    std::string name, part, last;
    std::getline(std::getline(std::getline(in, name, '.'), part, '.'), last);
    const bool end = last == "end";
    const uint32_t number = last.empty() || end ? 0 : static_cast<uint32_t>(std::stoul(last));
    if (name == "page") return {static_cast<uint32_t>(std::stoul(part))};
    if (name == "last") return {b->PageCount() - 1 - static_cast<uint32_t>(std::stoul(part))};
    const std::u16string path =
        name.empty() ? u"" : u"\\" + std::u16string(name.begin(), name.end());
    const Place& found = b->At(path);
    if (part == "id") return {found.fileId};
    if (part == "entry") return {found.entryPage};
    if (part == "dirent") return {found.entryPage, found.entryOffset};
    if (part == "record") {
        const uint8_t* record = b->Record(path, static_cast<uint16_t>(number));
        return {found.headerPage, static_cast<size_t>(record - b->Page(found.headerPage))};
    }
    const std::vector<uint32_t>& pages = part == "head"      ? found.headerPages
                                         : part == "entries" ? found.entryPages
                                         : part == "names"   ? found.namePages
                                         : part == "stream"  ? found.streamPages
                                                             : found.indexPages;
    return {end ? pages.back() : pages.at(number)};
}

}  // namespace

void Edit(Builder* builder, const std::string& edits) {
    std::istringstream in(edits);
    for (std::string where, what; in >> where >> what;) {
        const uint32_t value = std::isdigit(static_cast<unsigned char>(what[0])) != 0
                                   ? static_cast<uint32_t>(std::stoul(what, nullptr, 0))
                                   : Find(builder, what).page;
        if (where == "add") {
            builder->AddPage(static_cast<uint16_t>(value));
            continue;
        }
        const size_t verb = where.find('/') + 1, plus = where.find('+');
        const Spot spot = Find(builder, where.substr(verb, plus - verb));
        uint8_t* to = builder->Page(spot.page) + spot.at;
        if (plus != where.npos) to += std::stoul(where.substr(plus + 1));
        if (where.starts_with("slot"))
            builder->SetSlot(spot.page, static_cast<uint16_t>(value));
        else if (verb != 0)
            std::fill_n(to, value, static_cast<uint8_t>(where.starts_with("fill") ? 0xFF : 0));
        else
            where.ends_with(":16") ? Put16(to, 0, value) : Put32(to, 0, value);
    }
}

std::vector<uint32_t> PagesAt(Builder* builder, const std::string& places) {
    std::vector<uint32_t> pages;
    std::istringstream in(places);
    for (std::string place; in >> place;) pages.push_back(Find(builder, place).page);
    std::sort(pages.begin(), pages.end());
    return pages;
}

}  // namespace support::container
