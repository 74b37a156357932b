// SPDX-License-Identifier: MIT
#include "tests/support/ContainerBuilder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>

namespace support::container {

namespace {

constexpr uint32_t kRecordsStart = 36;
constexpr uint32_t kRecordHead = 12;
constexpr uint32_t kEntryBytes = 64;
constexpr uint32_t kNameInEntry = 22;
constexpr double kDate = 45000.25;  // of everything

uint32_t CeilDivide(size_t value, size_t by) {
    return static_cast<uint32_t>((value + by - 1) / by);
}
size_t RoundTo32(size_t value) {
    return (value + 31) / 32 * 32;
}

uint32_t KindBit(ItemKind kind) {
    return kind == ItemKind::Directory ? 2 : kind == ItemKind::Link ? 32 : 1;
}

uint16_t StreamType(const Item& item, uint32_t fileId) {
    return fileId == 1 ? RootDataRec : item.kind == ItemKind::Link ? LinkRec : DataRec;
}

}  // namespace

// The records of one object while it is laid out.
struct Builder::Records {
    Builder* builder;
    Place* place;
    uint32_t parentId;

    uint32_t Page() const { return place->headerPages.back(); }

    void NewPage() {
        uint8_t* page = builder->Append(&place->headerPages, HeaderPage, *place, place->entryPage,
                                        place->headerPages.size());
        Put32(page, 28, parentId);
        Put16(page, 32, kRecordsStart);
    }

    bool Fits(size_t payload) const {
        const uint32_t end = Get16(builder->PageBytes(Page()).data(), 32);
        return end + kRecordHead + payload < builder->form_.pageSize;
    }

    // The record's offset in Page().
    uint32_t Append(uint16_t type, uint32_t info, uint32_t link, const Bytes& payload) {
        if (!Fits(payload.size())) NewPage();
        uint8_t* page = builder->Page(Page());
        const uint32_t at = Get16(page, 32);
        if (at + kRecordHead + payload.size() > builder->form_.pageSize)
            throw std::length_error("a record is larger than a page");
        Put16(page, at, type);
        Put16(page, at + 2, static_cast<uint32_t>(kRecordHead + payload.size()));
        Put32(page, at + 4, info);
        Put32(page, at + 8, link);
        std::copy(payload.begin(), payload.end(), page + at + kRecordHead);
        Put16(page, 32, static_cast<uint32_t>(at + kRecordHead + payload.size()));
        return at;
    }
};

uint8_t* RecordIn(uint8_t* page, uint16_t type) {
    for (uint32_t at = kRecordsStart; at < Get16(page, 32); at += Get16(page, at + 2))
        if (Get16(page, at) == type) return page + at;
    return nullptr;
}

uint8_t* Builder::Record(const std::u16string& path, uint16_t type) {
    uint8_t* record = RecordIn(Page(At(path).headerPage), type);
    if (record == nullptr) throw std::logic_error("no such record");
    return record;
}

Builder::Builder(Form form, const Item& root) : form_(std::move(form)) {
    shift_ = static_cast<uint32_t>(std::countr_zero(form_.pageSize));
    AddPage(SuperPage);
    PlaceObject(root, u"", 0, 1);
    for (uint32_t i = 0; i < form_.freePages; ++i) AddPage(Free);
    PutSuperblock();
}

uint32_t Builder::AddPage(uint16_t kind) {
    const uint32_t group = form_.pageSize / 2;
    if (pages_.size() % group == 0) {
        pages_.emplace_back(form_.pageSize);
        Put16(pages_.back().data(), 0, shift_);
    }
    const uint32_t number = PageCount();
    pages_.emplace_back(form_.pageSize);
    Put16(Page(number), 0, kind);
    Put32(Page(number), 4, number);
    SetSlot(number, kind);
    return number;
}

void Builder::SetSlot(uint32_t page, uint16_t slot) {
    const uint32_t group = form_.pageSize / 2;
    Put16(Page(page / group * group), 2 * (page % group), slot);
}

// One page more in a chain that begins behind page `head`.
uint8_t* Builder::Append(std::vector<uint32_t>* chain, uint16_t kind, const Place& place,
                         uint32_t head, size_t level) {
    const uint32_t number = AddPage(kind), prev = chain->empty() ? head : chain->back();
    if (!chain->empty()) Put32(Page(prev), 16, number);
    chain->push_back(number);
    uint8_t* page = Page(number);
    Put32(page, 12, prev);
    Put32(page, 20, place.fileId);
    Put32(page, 24, static_cast<uint32_t>(level));
    if (kind > HeaderPage) Put16(page, 28, kind - 32u);
    return page;
}

void Builder::PutSuperblock() {
    uint8_t* page = Page(1);
    for (const auto& [at, value] : {std::pair<size_t, uint32_t>{12, form_.logPending},
                                    {14, 13},
                                    {16, 10},
                                    {160, 1},
                                    {162, 76},
                                    {236, form_.inFileLog}})
        Put16(page, at, value);
    for (const auto& [at, value] : {std::pair<size_t, uint32_t>{144, 0x3000000},
                                    {148, 0x3000000},
                                    {152, lastFileId_},
                                    {156, 1},
                                    {164, 64},
                                    {172, 1},
                                    {176, 2},
                                    {180, 2},
                                    {240, form_.maxPages},
                                    {244, form_.flags},
                                    {252, 6553}})
        Put32(page, at, value);
    const Bytes banner = UnitBytes(u"Tarn for Windows (c) Bracken Corporation");
    std::copy(banner.begin(), banner.end(), page + 18);
}

void Builder::PlaceObject(const Item& item, const std::u16string& path, uint32_t parentId,
                          uint32_t entryPage) {
    Place place;
    place.fileId = ++lastFileId_;
    place.entryPage = entryPage;
    Records records{this, &place, parentId};
    records.NewPage();
    place.headerPage = place.headerPages.front();

    Bytes info(36);
    for (size_t at : {4, 12, 20}) Put64(info.data(), at, std::bit_cast<uint64_t>(kDate));
    Put64(info.data(), 28, item.size.value_or(item.body.size()));
    records.Append(FileInfo, 0, 0, info);
    if (item.method.has_value()) {
        Bytes settings(12);
        Put32(settings.data(), 0, *item.method);
        Put16(settings.data(), 8, item.pagesPerBlock);
        records.Append(BlockSettings, 0, 0, settings);
    }
    if (place.fileId == 1 && form_.findSettings.has_value()) {
        Bytes settings(4);
        Put32(settings.data(), 0, *form_.findSettings);
        records.Append(FindSettings, 0, 0, settings);
    }
    if (!item.children.empty() || item.freeEntries > 0) PlaceChildren(item, path, &records, &place);
    if (item.kind != ItemKind::Directory || !item.body.empty()) PlaceStream(item, &records, &place);
    Place& kept = places_[path];
    place.namePages = kept.namePages;  // placed with the entry, which comes last
    kept = place;
}

void Builder::PlaceChildren(const Item& item, const std::u16string& path, Records* records,
                            Place* place) {
    const uint32_t count = item.freeEntries + static_cast<uint32_t>(item.children.size());
    const uint32_t fileId = place->fileId;
    if (item.inlineEntries) {
        const uint32_t record =
            records->Append(DirectoryRec, 0, 0, Bytes(size_t{count} * kEntryBytes));
        const uint32_t header = records->Page();
        for (uint32_t i = item.freeEntries; i < count; ++i)
            PlaceEntry(item.children[i - item.freeEntries], path, header,
                       record + kRecordHead + i * kEntryBytes, fileId);
        return;
    }
    const uint32_t capacity = Payload() / kEntryBytes;
    const uint32_t record = records->Append(DirectoryRec, 0, 0, {});
    const uint32_t header = records->Page();
    for (uint32_t level = 0; level < CeilDivide(count, capacity); ++level)
        Append(&place->entryPages, EntryPage, *place, header, level);
    Put32(Page(header), record + 8, place->entryPages.front());
    for (uint32_t i = item.freeEntries; i < count; ++i)
        PlaceEntry(item.children[i - item.freeEntries], path, place->entryPages[i / capacity],
                   32 + i % capacity * kEntryBytes, fileId);
}

void Builder::PlaceEntry(const Item& item, const std::u16string& path, uint32_t page,
                         uint32_t offset, uint32_t parentId) {
    const std::u16string itemPath = path + u"\\" + item.name;
    PlaceObject(item, itemPath, parentId, page);
    Place& place = places_[itemPath];
    place.entryOffset = offset;
    const uint32_t capacity = Payload() / 2;
    for (size_t covered = kNameInEntry; covered < item.name.size(); covered += capacity) {
        uint8_t* part = Append(&place.namePages, NamePage, place, page, place.namePages.size());
        const Bytes units = UnitBytes(item.name.substr(covered, capacity));
        std::copy(units.begin(), units.end(), part + 32);
    }
    uint8_t* entry = Page(page) + offset;
    Put32(entry, 0, place.fileId);
    Put32(entry, 4, place.headerPage);
    Put32(entry, 8, KindBit(item.kind) | item.attributes);
    Put32(entry, 12, static_cast<uint32_t>(item.name.size()));
    Put32(entry, 16, place.namePages.empty() ? 0 : place.namePages.front());
    const Bytes head = UnitBytes(item.name.substr(0, kNameInEntry));
    std::copy(head.begin(), head.end(), entry + 20);
}

void Builder::PlaceStream(const Item& item, Records* records, Place* place) {
    if (item.secondHeader) records->NewPage();
    const uint16_t type = StreamType(item, place->fileId);
    Bytes stored = item.body;
    uint32_t info = 0;
    if (item.method == 4u && !stored.empty()) {
        const Bytes code = EncodeRunLengths(stored);
        if (code.size() < stored.size()) {
            stored = code;
            info = static_cast<uint32_t>(RoundTo32(code.size()));
        }
    }
    stored.resize(RoundTo32(stored.size()));
    const bool oneBlock = item.body.size() <= size_t{item.pagesPerBlock} * Payload();
    if (!item.inPages && oneBlock && records->Fits(stored.size()))
        records->Append(type, info, 0, stored);
    else
        PlaceStreamPages(item, type, records, place);
}

void Builder::PlaceStreamPages(const Item& item, uint16_t type, Records* records, Place* place) {
    const size_t blockBytes = size_t{item.pagesPerBlock} * Payload();
    std::vector<uint32_t> list;
    const uint32_t record = records->Append(type, 0, 0, {});
    const uint32_t header = records->Page();
    for (size_t start = 0; start < item.body.size(); start += blockBytes) {
        const auto from = item.body.begin() + static_cast<ptrdiff_t>(start);
        Bytes stored(from,
                     from + static_cast<ptrdiff_t>(std::min(blockBytes, item.body.size() - start)));
        const Bytes code = item.method == 4u ? EncodeRunLengths(stored) : Bytes();
        const bool coded = item.method == 4u && code.size() < stored.size();
        if (coded) stored = code;
        list.resize(start / Payload());
        for (size_t at = 0; at < stored.size(); at += Payload()) {
            const size_t used = std::min<size_t>(Payload(), stored.size() - at);
            uint8_t* page = Append(&place->streamPages, static_cast<uint16_t>(type + 32), *place,
                                   header, list.size());
            if (coded) Put16(page, 30, static_cast<uint32_t>(used));
            std::copy_n(stored.begin() + static_cast<ptrdiff_t>(at), used, page + 32);
            list.push_back(place->streamPages.back());
        }
    }
    if (!list.empty()) Put32(Page(header), record + 8, place->streamPages.at(0));
    if ((item.indexed || list.size() >= 17) && type != RootDataRec)
        PlaceIndex(list, records, place);
}

void Builder::PlaceIndex(const std::vector<uint32_t>& list, Records* records, Place* place) {
    const uint32_t capacity = Payload() / 4;
    const uint32_t record = records->Append(PageListRec, 0, 0, {});
    const uint32_t header = records->Page();
    for (size_t i = 0; i < list.size(); ++i) {
        if (i % capacity == 0)
            Append(&place->indexPages, PageListPage, *place, header, i / capacity);
        const uint32_t index = place->indexPages.back();
        Put32(Page(index), 32 + 4 * (i % capacity), list[i]);
        if (list[i] != 0) Put32(Page(list[i]), 8, index);
    }
    Put32(Page(header), record + 8, place->indexPages.front());
}

// The first of a chain of pages with numbers in them, `width` bytes apart from `first` on; `link`
// is where the next page stands.
uint32_t Builder::AddNumbers(std::span<const uint32_t> numbers, size_t first, size_t width,
                             size_t link) {
    const size_t perPage = (form_.pageSize - first) / width;
    uint32_t head = 0, prev = 0;
    for (size_t at = 0; at < numbers.size(); ++at) {
        if (at % perPage == 0) {
            const uint32_t page = AddPage(RecordPage);
            rawPages_.insert(page);
            if (prev != 0) Put32(Page(prev), link, page);
            if (prev == 0) head = page;
            prev = page;
        }
        Put32(Page(prev), first + width * (at % perPage), numbers[at]);
    }
    return head;
}

void Builder::AddChainedLog(const std::vector<uint32_t>& logged, uint32_t chains) {
    const size_t perChain = CeilDivide(logged.size(), chains);
    std::vector<uint32_t> heads;
    for (std::span<const uint32_t> rest = logged; !rest.empty();) {
        const size_t count = std::min(perChain, rest.size());
        heads.push_back(AddNumbers(rest.first(count), 20, 4, 16));
        rest = rest.subspan(count);
    }
    Put32(Page(1), 248, AddNumbers(heads, 16, 8, 8));
    Put16(Page(1), 12, 1);
    Put32(Page(1), 244, form_.flags | 2);
}

void Builder::AddInFileLog(const std::vector<Bytes>& logPages, uint32_t sparePages) {
    for (size_t i = 0; i < sparePages + logPages.size(); ++i) AddPage(Free);
    // A map page among them would shift the log: it is counted backward from the end.
    for (size_t i = 0; i < logPages.size(); ++i) {
        const uint32_t place = PageCount() - 1 - static_cast<uint32_t>(i);
        if (place % (form_.pageSize / 2) == 0)
            throw std::length_error("a map page lies in the log");
        pages_.at(place) = logPages[i];
        readyPages_.insert(place);
    }
    Put16(Page(1), 12, 1);
    Put16(Page(1), 236, 1);
}

Bytes Builder::Finish() const {
    if (form_.prefix.size() % form_.pageSize != 0)
        throw std::length_error("the container does not begin at a page");
    Bytes file = form_.prefix;
    for (uint32_t number = 0; number < PageCount(); ++number) {
        Bytes page = pages_[number];
        if (form_.foreign && readyPages_.count(number) == 0) {
            const bool map = number % (form_.pageSize / 2) == 0;
            const uint16_t pending = map || number == 1 ? 0 : Get16(page.data(), 2);
            if (rawPages_.count(number) != 0) {
                Reverse16(page.data());
                Reverse32From(page.data(), form_.pageSize, 4);
            } else {
                const uint16_t kind = Get16(page.data(), 0);
                Convert(page.data(), form_.pageSize, false, kind == 0 ? pending : 0);
                if (pending != 0) Reverse16(page.data() + 2);
            }
        }
        file.insert(file.end(), page.begin(), page.end());
    }
    file.insert(file.end(), form_.trailing.begin(), form_.trailing.end());
    return file;
}

std::vector<Bytes> SequentialLog(const Form& form, const std::vector<uint32_t>& committed,
                                 const std::vector<LogPage>& pages) {
    std::vector<Bytes> log(1, Bytes(form.pageSize));
    for (size_t i = 0; i < committed.size(); ++i) Put32(log[0].data(), 4 + 4 * i, committed[i]);
    if (form.foreign) Reverse32From(log[0].data(), form.pageSize, 4);
    for (const LogPage& entry : pages) {
        Bytes page = entry.image;
        page.resize(form.pageSize);
        const bool list = entry.kind == kListOfFrees || entry.kind == kListOfRewrites;
        Put16(page.data(), 0, entry.kind);
        Put32(page.data(), 4, entry.target);
        Put32(page.data(), 8, entry.transaction);
        for (size_t i = 0; i < entry.list.size(); ++i)
            Put32(page.data(), 12 + 4 * i, entry.list[i]);
        if (form.foreign && list) {
            Reverse16(page.data());
            Reverse32From(page.data(), form.pageSize, 4);
        } else if (form.foreign) {
            Convert(page.data(), form.pageSize, false);
        }
        log.push_back(page);
    }
    return log;
}

Bytes Joined(const std::vector<Bytes>& pages) {
    Bytes all;
    for (const Bytes& page : pages) all.insert(all.end(), page.begin(), page.end());
    return all;
}

Bytes PartitionTable(uint32_t firstBlock, size_t bytes) {
    Bytes sector(bytes);
    Put32(sector.data(), 454, firstBlock);
    Put16(sector.data(), 510, 0xAA55);
    return sector;
}

Bytes VolumeSector(uint32_t sectorSize, uint32_t sectors, size_t bytes, bool wide) {
    Bytes sector(bytes);
    Put16(sector.data(), 11, sectorSize);
    Put16(sector.data(), 14, 1);
    sector[16] = 2;
    wide ? Put32(sector.data(), 32, sectors) : Put16(sector.data(), 19, sectors);
    if (sectorSize <= bytes) Put16(sector.data(), sectorSize - 2, 0xAA55);
    return sector;
}

}  // namespace support::container
