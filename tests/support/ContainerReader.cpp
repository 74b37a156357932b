// SPDX-License-Identifier: MIT
#include "tests/support/ContainerReader.h"

#include <algorithm>
#include <bit>
#include <set>

namespace support::container {

namespace {

char16_t FoldUnit(char16_t unit) {
    return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 32) : unit;
}

std::u16string FoldName(std::u16string name) {
    std::transform(name.begin(), name.end(), name.begin(), FoldUnit);
    return name;
}

constexpr uint16_t kForeign = 0x4E57;  // the signature in the other byte order
constexpr size_t kProblemLimit = 50;
constexpr uint64_t kBodyLimit = 1 << 28;

// Where a record lies.
struct RecordAt {
    uint32_t page = 0, offset = 0, info = 0, link = 0;
    uint16_t size = 0;
    bool present = false;
};
using Records = std::map<uint16_t, RecordAt>;

class Walker {
  public:
    explicit Walker(const Bytes& file) : file_(file) {}

    Reading Run() {
        if (!CutPages()) return std::move(out_);
        CheckSuperblock();
        reached_[1] = 1;
        CheckSlot(1, SuperPage);
        out_.root = ReadObject(EntryOf(pages_[1].data() + 172), 1, 0);
        CheckMap();
        return std::move(out_);
    }

  private:
    struct Entry {
        uint32_t fileId, headerPage, attributes, nameLength, namePage;
        std::u16string head;
    };

    void Problem(const std::string& text) {
        if (out_.problems.size() < kProblemLimit) out_.problems.push_back(text);
    }
    static std::string Name(uint32_t page) { return "page " + std::to_string(page); }
    bool Expect(bool right, uint32_t page, const std::string& what) {
        if (!right) Problem(Name(page) + ": " + what);
        return right;
    }

    bool CutPages() {
        const uint16_t signature = file_.size() < 512 ? 0 : Get16(file_.data(), 2);
        if (signature != SuperPage && signature != kForeign) {
            Problem("no signature");
            return false;
        }
        out_.foreign = signature == kForeign;
        uint16_t shift = Get16(file_.data(), 0);
        if (out_.foreign) shift = static_cast<uint16_t>(shift >> 8 | shift << 8);
        if (shift < 8 || shift > 16) {
            Problem("page size out of range");
            return false;
        }
        out_.pageSize = 1u << shift;
        out_.pageCount = static_cast<uint32_t>(file_.size() / out_.pageSize);
        for (uint32_t i = 0; i < out_.pageCount; ++i) {
            const auto start = file_.begin() + static_cast<ptrdiff_t>(size_t{i} * out_.pageSize);
            pages_.emplace_back(start, start + out_.pageSize);
            if (out_.foreign) Convert(pages_.back().data(), out_.pageSize, true);
        }
        reached_.resize(out_.pageCount);
        if (out_.pageCount < 3) Problem("fewer than three pages");
        return out_.pageCount >= 3;
    }

    void CheckSuperblock() {
        const uint8_t* page = pages_[1].data();
        Expect(Get16(page, 0) == SuperPage && Get32(page, 4) == 1 && Get32(page, 8) == 0, 1,
               "not a superblock");
        Expect(Get16(page, 12) == 0 && Get32(page, 248) == 0, 1, "a log is pending");
        Expect(Get16(page, 160) == 1 && Get16(page, 162) == 76 && Get32(page, 164) == 64 &&
                   Get32(page, 168) == 0,
               1, "a layout constant is wrong");
        Expect((Get32(page, 244) & 1) == 0, 1, "marked as corrupted");
        Expect(Get32(page, 240) == 0 || out_.pageCount <= Get32(page, 240), 1,
               "more pages than the limit");
    }

    bool IsMap(uint32_t page) const { return page % (out_.pageSize / 2) == 0; }
    uint16_t SlotOf(uint32_t page) const {
        const uint32_t group = out_.pageSize / 2;
        const uint8_t* map = pages_[page / group * group].data();
        return Get16(map, 0) == 0 ? 0 : Get16(map, 2 * (page % group));
    }
    void CheckSlot(uint32_t page, uint16_t kind) {
        Expect(SlotOf(page) == kind, page,
               "slot " + std::to_string(SlotOf(page)) + " for kind " + std::to_string(kind));
    }

    // The page, if this is the first way that leads there and it is what it should be.
    const uint8_t* Reach(uint32_t page, uint16_t kind, uint32_t fileId, uint32_t prev,
                         const std::string& what) {
        if (page >= out_.pageCount || IsMap(page)) {
            Problem(what + " is " + Name(page));
            return nullptr;
        }
        if (!Expect(reached_[page] == 0, page, what + " is reached twice")) return nullptr;
        reached_[page] = 1;
        CheckSlot(page, kind);
        const uint8_t* bytes = pages_[page].data();
        Expect(Get32(bytes, 4) == page, page, "wrong number");
        Expect(Get16(bytes, 2) == 0, page, "pending kind");
        Expect(Get32(bytes, 12) == prev, page, "prevPage is not " + std::to_string(prev));
        if (kind != HeaderPage && kind != NamePage)
            Expect(Get16(bytes, 28) == kind - 32, page, "wrong record type");
        const bool own = Expect(Get16(bytes, 0) == kind, page, what + " has another kind") &
                         Expect(Get32(bytes, 20) == fileId, page, what + " has another owner");
        return own ? bytes : nullptr;
    }

    // The pages of a chain that begins behind page `head`. Those of a stream have an ordinal in the
    // place of a level.
    std::vector<uint32_t> Chain(uint32_t first, uint16_t kind, uint32_t fileId, uint32_t head,
                                const std::string& what) {
        const bool leveled = kind == HeaderPage || kind == EntryPage || kind == PageListPage;
        std::vector<uint32_t> chain;
        for (uint32_t next = first, prev = head; next != 0; prev = chain.back()) {
            const uint8_t* page = Reach(next, kind, fileId, prev, what);
            if (page == nullptr) break;
            Expect(!leveled || Get32(page, 24) == chain.size(), next, "wrong level");
            chain.push_back(next);
            next = Get32(page, 16);
        }
        return chain;
    }

    static Entry EntryOf(const uint8_t* bytes) {
        Entry entry{Get32(bytes, 0),  Get32(bytes, 4),  Get32(bytes, 8),
                    Get32(bytes, 12), Get32(bytes, 16), {}};
        for (uint32_t i = 0; i < std::min<uint32_t>(entry.nameLength, 22); ++i)
            entry.head.push_back(static_cast<char16_t>(Get16(bytes, 20 + 2 * i)));
        return entry;
    }

    Found ReadObject(const Entry& entry, uint32_t entryPage, uint32_t parentId) {
        Found found;
        found.fileId = entry.fileId;
        found.headerPage = entry.headerPage;
        found.attributes = entry.attributes;
        found.name = ReadName(entry, entryPage);
        if (!ids_.insert(entry.fileId).second)
            Problem("id " + std::to_string(entry.fileId) + " is used twice");
        if (entry.fileId > Get32(pages_[1].data(), 152))
            Problem("id " + std::to_string(entry.fileId) + " is above the highest");
        const Records records = ReadRecords(entry, entryPage, parentId);
        ReadFileInfo(records, entry, &found);
        ReadStream(records, &found);
        ReadChildren(records, &found);
        return found;
    }

    std::u16string ReadName(const Entry& entry, uint32_t entryPage) {
        std::u16string name = entry.head;
        for (const uint32_t number :
             Chain(entry.namePage, NamePage, entry.fileId, entryPage, "name page")) {
            if (name.size() == entry.nameLength) Problem("the name pages go on behind the name");
            for (uint32_t at = 32; at < out_.pageSize && name.size() < entry.nameLength; at += 2)
                name.push_back(static_cast<char16_t>(Get16(pages_[number].data(), at)));
        }
        if (name.size() < entry.nameLength) Problem("a name is longer than its pages");
        return name;
    }

    Records ReadRecords(const Entry& entry, uint32_t entryPage, uint32_t parentId) {
        Records records;
        const std::vector<uint32_t> chain =
            Chain(entry.headerPage, HeaderPage, entry.fileId, entryPage, "header page");
        if (chain.empty()) Problem("an object without a header page");
        for (const uint32_t number : chain) {
            const uint8_t* page = pages_[number].data();
            Expect(number != chain.front() || Get32(page, 28) == parentId, number, "wrong parent");
            ReadRecordArea(page, number, &records);
        }
        return records;
    }

    void ReadRecordArea(const uint8_t* page, uint32_t number, Records* records) {
        const uint32_t end = Get16(page, 32);
        if (!Expect(end >= 36 && end <= out_.pageSize, number, "end offset out of range")) return;
        for (uint32_t at = 36; at < end;) {
            const uint16_t type = Get16(page, at), size = Get16(page, at + 2);
            if (!Expect(size >= 12 && at + size <= end, number, "record size out of range")) return;
            Expect(records->count(type) == 0, number, "a second record of one type");
            const uint32_t link = Get32(page, at + 8);
            Expect(link == 0 || size == 12, number, "a record with a link and a payload");
            records->emplace(type, RecordAt{number, at, Get32(page, at + 4), link, size, true});
            at += size;
        }
        Expect(std::all_of(page + end, page + out_.pageSize, [](uint8_t b) { return b == 0; }),
               number, "bytes behind the records");
    }

    static RecordAt Get(const Records& records, uint16_t type) {
        const auto found = records.find(type);
        return found == records.end() ? RecordAt() : found->second;
    }
    const uint8_t* BytesOf(const RecordAt& record) const {
        return pages_[record.page].data() + record.offset;
    }

    void ReadFileInfo(const Records& records, const Entry& entry, Found* found) {
        const RecordAt info = Get(records, FileInfo);
        if (!info.present || info.size != 48) {
            Problem("object " + std::to_string(entry.fileId) + " has no file information");
            return;
        }
        Expect(info.offset == 36, info.page, "file information is not first");
        found->size = Get64(BytesOf(info), 40);
    }

    void ReadStream(const Records& records, Found* found) {
        const uint16_t type = found->fileId == 1              ? RootDataRec
                              : (found->attributes & 32) != 0 ? LinkRec
                                                              : DataRec;
        method_ = 0;
        pagesPerBlock_ = 1;
        const RecordAt settings = Get(records, BlockSettings);
        if (settings.present && settings.size >= 22 && found->fileId != 1) {
            method_ = Get32(BytesOf(settings), 12);
            pagesPerBlock_ = std::max<uint32_t>(Get16(BytesOf(settings), 20), 1);
        }
        const RecordAt record = Get(records, type);
        if (record.present && record.link == 0)
            ReadInline(record, found);
        else if (record.present)
            ReadPages(records, record, static_cast<uint16_t>(type + 32), found);
        if (found->size > kBodyLimit) {
            Problem("object " + std::to_string(found->fileId) + " is too large");
            return;
        }
        found->body.resize(found->size);
    }

    void ReadInline(const RecordAt& record, Found* found) {
        const uint8_t* bytes = BytesOf(record);
        found->body.assign(bytes + 12, bytes + record.size);
        if (record.info == 0) return;
        Bytes plain;
        Expect(method_ == 4 && DecodeRunLengths(found->body, &plain), record.page,
               "a coded record does not decode");
        found->body = plain;
    }

    // Pages by ordinal, and what they say of their place.
    void ReadPages(const Records& records, const RecordAt& record, uint16_t kind, Found* found) {
        std::map<uint32_t, uint32_t> byOrdinal;
        for (const uint32_t page :
             Chain(record.link, kind, found->fileId, record.page, "stream page")) {
            const uint32_t ordinal = Get32(pages_[page].data(), 24);
            Expect(byOrdinal.empty() || ordinal > byOrdinal.rbegin()->first, page,
                   "ordinals do not rise");
            byOrdinal[ordinal] = page;
        }
        const uint32_t last = byOrdinal.empty() ? 0 : byOrdinal.rbegin()->first;
        CheckIndex(Get(records, PageListRec), byOrdinal, found->fileId);
        if (uint64_t{last} * (out_.pageSize - 32) > kBodyLimit) {
            Problem("ordinal too large");
            return;
        }
        Assemble(byOrdinal, &found->body);
    }

    void CheckIndex(const RecordAt& record, const std::map<uint32_t, uint32_t>& byOrdinal,
                    uint32_t fileId) {
        std::map<uint32_t, uint32_t> listed, lister;
        uint32_t ordinal = 0;
        for (const uint32_t index :
             Chain(record.link, PageListPage, fileId, record.page, "index page"))
            for (uint32_t at = 32; at < out_.pageSize; at += 4, ++ordinal)
                if (const uint32_t number = Get32(pages_[index].data(), at); number != 0) {
                    listed[ordinal] = number;
                    lister[number] = index;
                }
        if (record.present && listed != byOrdinal) Problem("the index disagrees with the chain");
        for (const auto& [place, page] : byOrdinal)
            Expect(Get32(pages_[page].data(), 8) == (record.present ? lister[page] : 0), page,
                   "wrong listPage");
    }

    void Assemble(const std::map<uint32_t, uint32_t>& byOrdinal, Bytes* body) {
        const uint32_t payload = out_.pageSize - 32;
        for (auto at = byOrdinal.begin(); at != byOrdinal.end();) {
            const uint32_t block = at->first / pagesPerBlock_;
            Bytes stored;
            bool coded = false;
            const uint32_t firstPage = at->second;
            for (; at != byOrdinal.end() && at->first / pagesPerBlock_ == block; ++at) {
                const uint8_t* page = pages_[at->second].data();
                const uint16_t used = Get16(page, 30);
                coded = coded || used != 0;
                if (!coded) stored.resize(size_t{at->first % pagesPerBlock_} * payload);
                Expect(used <= payload, at->second, "recordInfo out of range");
                stored.insert(
                    stored.end(), page + 32,
                    page + 32 + (used == 0 ? payload : std::min<uint32_t>(used, payload)));
            }
            Bytes plain = stored;
            if (coded)
                Expect(method_ == 4 && DecodeRunLengths(stored, &plain), firstPage,
                       "a coded block does not decode");
            body->resize(size_t{block} * pagesPerBlock_ * payload);
            body->insert(body->end(), plain.begin(), plain.end());
        }
    }

    void ReadChildren(const Records& records, Found* found) {
        const RecordAt record = Get(records, DirectoryRec);
        if (!record.present) return;
        std::vector<std::pair<uint32_t, const uint8_t*>> entries;
        if (record.link == 0) {
            for (uint32_t at = 12; at + 64 <= record.size; at += 64)
                entries.emplace_back(record.page, BytesOf(record) + at);
        } else {
            for (const uint32_t number :
                 Chain(record.link, EntryPage, found->fileId, record.page, "entry page"))
                for (uint32_t at = 32; at + 64 <= out_.pageSize; at += 64)
                    entries.emplace_back(number, pages_[number].data() + at);
        }
        std::set<std::u16string> names;
        for (const auto& [page, bytes] : entries) {
            const Entry entry = EntryOf(bytes);
            if (entry.fileId == 0) continue;
            found->children.push_back(ReadObject(entry, page, found->fileId));
            Expect(names.insert(FoldName(found->children.back().name)).second, page,
                   "two entries have one name");
        }
    }

    void CheckMap() {
        for (uint32_t page = 2; page < out_.pageCount; ++page) {
            const uint16_t slot = IsMap(page) ? 0 : SlotOf(page);
            const bool used = slot != 0 && slot < 65520;
            if (used || reached_[page] != 0) ++out_.usedPages;
            if (used) Expect(reached_[page] != 0, page, "in use, and nothing refers to it");
        }
        for (uint32_t page = 0; page < out_.pageCount; page += out_.pageSize / 2)
            Expect(Get16(pages_[page].data(), 0) == std::countr_zero(out_.pageSize), page,
                   "slot 0 is not the page size");
    }

    const Bytes& file_;
    std::vector<Bytes> pages_;
    std::vector<uint8_t> reached_;
    std::set<uint32_t> ids_;
    uint32_t method_ = 0, pagesPerBlock_ = 1;  // of the stream being read
    Reading out_;
};

}  // namespace

const Found* Found::Child(const std::u16string& childName) const {
    for (const Found& child : children)
        if (FoldName(child.name) == FoldName(childName)) return &child;
    return nullptr;
}

std::string Reading::Report() const {
    std::string text;
    for (const std::string& problem : problems) text += problem + "\n";
    return text;
}

const Found* Reading::At(const std::u16string& path) const {
    const Found* found = &root;
    for (size_t at = 1; at < path.size() && found != nullptr;) {
        const size_t end = std::min(path.find(u'\\', at), path.size());
        found = found->Child(path.substr(at, end - at));
        at = end + 1;
    }
    return found;
}

Reading ReadContainer(const Bytes& file) {
    return Walker(file).Run();
}

std::u16string DecodeName(const std::u16string& stored) {
    std::u16string name;
    size_t at = stored.rfind(u"#FILE", 0) == 0 ? 5 : 0;
    for (; at < stored.size(); ++at) {
        if (stored[at] != u'#') {
            name.push_back(stored[at]);
            continue;
        }
        unsigned unit = 0;
        for (int digit = 0; digit < 4 && at + 1 < stored.size(); ++digit) {
            const char16_t c = stored[++at];
            unit = unit * 16 + (c >= u'A' ? c - u'A' + 10u : c - u'0' + 0u);
        }
        name.push_back(static_cast<char16_t>(unit));
    }
    return name;
}

Key RegistryOf(const Found& directory) {
    Key key;
    for (const Found& child : directory.children) {
        const std::u16string name = DecodeName(child.name);
        if ((child.attributes & 2) != 0) {
            key.keys.emplace(name, RegistryOf(child));
        } else if (child.body.size() >= 8) {
            Value value{Get32(child.body.data(), 0), {}};
            const size_t size = Get32(child.body.data(), 4);
            value.data.assign(
                child.body.begin() + 8,
                child.body.begin() + static_cast<ptrdiff_t>(std::min(child.body.size(), 8 + size)));
            key.values.emplace(name == u"(Default)" ? u"" : name, value);
        }
    }
    return key;
}

}  // namespace support::container
