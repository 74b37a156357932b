// SPDX-License-Identifier: MIT
#include "tests/support/ContainerReader.h"

#include <algorithm>
#include <set>

namespace support::container {

std::u16string Folded(std::u16string text) {
    for (char16_t& unit : text)
        if (unit >= u'A' && unit <= u'Z') unit = static_cast<char16_t>(unit + 32);
    return text;
}

namespace {

constexpr uint16_t kForeign = 0x4E57;  // the signature in the other byte order
constexpr uint64_t kBodyLimit = 1 << 28;

class Walker {
  public:
    explicit Walker(const Bytes& file) : file_(file) {}

    Reading Run() {
        if (!CutPages()) {
            out_.wrong = "no container";
            return std::move(out_);
        }
        out_.root = ReadObject(pages_[1].data() + 172);
        CountPages();
        return std::move(out_);
    }

  private:
    using Records = std::map<uint16_t, const uint8_t*>;

    bool Expect(bool right, const std::string& what) {
        if (!right && out_.wrong.empty()) out_.wrong = what;
        return right;
    }

    bool CutPages() {
        const uint16_t signature = file_.size() < 512 ? 0 : Get16(file_.data(), 2);
        out_.foreign = signature == kForeign;
        if (signature != SuperPage && !out_.foreign) return false;
        const uint32_t shift = file_[out_.foreign ? 1 : 0];
        if (shift < 8 || shift > 16) return false;
        out_.pageSize = 1u << shift;
        out_.pageCount = static_cast<uint32_t>(file_.size() / out_.pageSize);
        for (uint32_t i = 0; i < out_.pageCount; ++i) {
            const auto start = file_.begin() + static_cast<ptrdiff_t>(size_t{i} * out_.pageSize);
            pages_.emplace_back(start, start + out_.pageSize);
            if (out_.foreign) Convert(pages_.back().data(), out_.pageSize, true);
        }
        return out_.pageCount >= 3;
    }

    // The pages of a chain, as far as each is reached for the first time and is what it should be.
    std::vector<const uint8_t*> Chain(uint32_t first, uint16_t kind, uint32_t fileId) {
        std::vector<const uint8_t*> chain;
        for (uint32_t next = first; next != 0; next = Get32(chain.back(), 16)) {
            const uint8_t* page = next < out_.pageCount ? pages_[next].data() : nullptr;
            if (!Expect(page != nullptr && reached_.insert(next).second && Get16(page, 0) == kind &&
                            Get32(page, 20) == fileId &&
                            (kind != EntryPage || Get32(page, 24) == chain.size()),
                        "page " + std::to_string(next) + " of object " + std::to_string(fileId)))
                break;
            chain.push_back(page);
        }
        return chain;
    }

    Item ReadObject(const uint8_t* entry) {
        Item found;
        found.fileId = Get32(entry, 0);
        found.headerPage = Get32(entry, 4);
        found.attributes = Get32(entry, 8);
        found.kind = (found.attributes & 2) != 0    ? ItemKind::Directory
                     : (found.attributes & 32) != 0 ? ItemKind::Link
                                                    : ItemKind::File;
        found.name = ReadName(entry);
        Records records;
        for (const uint8_t* page : Chain(found.headerPage, HeaderPage, found.fileId))
            ReadRecords(page, &records);
        ReadStream(&records, &found);
        const uint8_t* info = records[FileInfo];
        if (Expect(info != nullptr && Get16(info, 2) == 48, "an object without its information") &&
            Expect(Get64(info, 40) <= kBodyLimit, "a body too large"))
            found.body.resize(Get64(info, 40));
        ReadChildren(records[DirectoryRec], &found);
        return found;
    }

    std::u16string ReadName(const uint8_t* entry) {
        std::u16string name;
        const uint32_t length = Get32(entry, 12);
        const auto take = [&](const uint8_t* bytes, size_t at, size_t end) {
            for (; at < end && name.size() < length; at += 2)
                name.push_back(static_cast<char16_t>(Get16(bytes, at)));
        };
        take(entry, 20, 64);
        for (const uint8_t* page : Chain(Get32(entry, 16), NamePage, Get32(entry, 0)))
            take(page, 32, out_.pageSize);
        Expect(name.size() == length, "a name is longer than its pages");
        return name;
    }

    void ReadRecords(const uint8_t* page, Records* records) {
        const uint32_t end = std::min<uint32_t>(Get16(page, 32), out_.pageSize);
        for (uint32_t at = 36; at + 12 <= end; at += Get16(page, at + 2)) {
            const uint32_t size = Get16(page, at + 2);
            if (!Expect(size >= 12 && at + size <= end, "a record of a wrong size")) return;
            records->emplace(Get16(page, at), page + at);
        }
    }

    void ReadStream(Records* records, Item* found) {
        const uint16_t type = found->fileId == 1              ? RootDataRec
                              : found->kind == ItemKind::Link ? LinkRec
                                                              : DataRec;
        const uint8_t *record = (*records)[type], *settings = (*records)[BlockSettings];
        const bool coded = settings != nullptr && Get16(settings, 2) >= 22 && found->fileId != 1;
        method_ = coded ? Get32(settings, 12) : 0;
        const uint32_t pagesPerBlock = coded ? std::max<uint32_t>(Get16(settings, 20), 1) : 1;
        if (record != nullptr && Get32(record, 8) != 0) {
            ReadPages(Get32(record, 8), static_cast<uint16_t>(type + 32), pagesPerBlock, found);
        } else if (record != nullptr) {
            found->body.assign(record + 12, record + Get16(record, 2));
            if (Get32(record, 4) != 0) Decode(&found->body);
        }
    }

    void Decode(Bytes* bytes) {
        Bytes plain;
        Expect(method_ == 4 && DecodeRunLengths(*bytes, &plain), "code that does not decode");
        *bytes = plain;
    }

    void ReadPages(uint32_t first, uint16_t kind, uint32_t pagesPerBlock, Item* found) {
        std::map<uint32_t, const uint8_t*> byOrdinal;
        for (const uint8_t* page : Chain(first, kind, found->fileId))
            byOrdinal[Get32(page, 24)] = page;
        const uint32_t payload = out_.pageSize - 32;
        for (auto at = byOrdinal.begin(); at != byOrdinal.end();) {
            const uint32_t block = at->first / pagesPerBlock;
            const uint64_t begin = uint64_t{block} * pagesPerBlock * payload;
            if (!Expect(begin <= kBodyLimit, "an ordinal too large")) return;
            Bytes stored;
            bool coded = false;
            for (; at != byOrdinal.end() && at->first / pagesPerBlock == block; ++at) {
                const uint32_t used = Get16(at->second, 30);
                coded = coded || used != 0;
                if (!coded) stored.resize(size_t{at->first % pagesPerBlock} * payload);
                const uint32_t count = used == 0 ? payload : std::min(used, payload);
                stored.insert(stored.end(), at->second + 32, at->second + 32 + count);
            }
            if (coded) Decode(&stored);
            found->body.resize(begin);
            found->body.insert(found->body.end(), stored.begin(), stored.end());
        }
    }

    void ReadChildren(const uint8_t* record, Item* found) {
        if (record == nullptr) return;
        const auto take = [&](const uint8_t* bytes, size_t at, size_t end) {
            for (; at + 64 <= end; at += 64)
                if (Get32(bytes, at) != 0) found->children.push_back(ReadObject(bytes + at));
        };
        if (Get32(record, 8) == 0) return take(record, 12, Get16(record, 2));
        for (const uint8_t* page : Chain(Get32(record, 8), EntryPage, found->fileId))
            take(page, 32, out_.pageSize);
    }

    // Those that the map has in use, without the first two.
    void CountPages() {
        const uint32_t group = out_.pageSize / 2;
        for (uint32_t page = 2; page < out_.pageCount; ++page) {
            const uint16_t slot = Get16(pages_[page / group * group].data(), 2 * (page % group));
            if (page % group != 0 && slot != 0 && slot < 65520) ++out_.usedPages;
        }
    }

    const Bytes& file_;
    std::vector<Bytes> pages_;
    std::set<uint32_t> reached_;
    uint32_t method_ = 0;  // of the stream being read
    Reading out_;
};

// Stored names are plain, but for the mark of a hidden value and units as four digits.
std::u16string DecodeName(const std::u16string& stored) {
    std::u16string name;
    for (size_t at = stored.starts_with(u"#FILE") ? 5 : 0; at < stored.size(); ++at) {
        unsigned unit = stored[at];
        if (unit == u'#') {
            unit = 0;
            for (int digit = 0; digit < 4 && at + 1 < stored.size(); ++digit) {
                const char16_t c = stored[++at];
                unit = unit * 16 + (c >= u'A' ? c - u'A' + 10u : c - u'0' + 0u);
            }
        }
        name.push_back(static_cast<char16_t>(unit));
    }
    return name;
}

}  // namespace

const Item* Reading::At(const std::u16string& path) const {
    const Item* found = &root;
    for (size_t at = 1; at < path.size() && found != nullptr;) {
        const size_t end = std::min(path.find(u'\\', at), path.size());
        const std::u16string name = Folded(path.substr(at, end - at));
        const auto child =
            std::find_if(found->children.begin(), found->children.end(),
                         [&](const Item& item) { return Folded(item.name) == name; });
        found = child == found->children.end() ? nullptr : &*child;
        at = end + 1;
    }
    return found;
}

Reading ReadContainer(const Bytes& file) {
    return Walker(file).Run();
}

Key RegistryOf(const Item& directory) {
    Key key;
    for (const Item& child : directory.children) {
        const std::u16string name = DecodeName(child.name);
        if (child.kind == ItemKind::Directory) {
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
