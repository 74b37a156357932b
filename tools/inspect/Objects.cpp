// SPDX-License-Identifier: MIT
#include "tools/inspect/Objects.h"

#include <fmt/format.h>

#include <algorithm>
#include <tuple>
#include <unordered_set>

#include "storage/core/Format.h"
#include "tools/format/Text.h"
#include "tools/inspect/Fields.h"
#include "tools/inspect/PageMap.h"
#include "tools/inspect/StoredName.h"

namespace fbr {
namespace {

using storage::DirectoryEntry;
using storage::LoadU16;
using storage::LoadU32;

constexpr platform::WStringView kMarker = WTEXT("#FILE"), kUnnamed = WTEXT("(Default)");
constexpr size_t kLongestPath = 4096;  // in units

uint16_t KindOf(const PageBytes& page) {
    return LoadU16(page.data(), 0);
}

uint32_t IdOf(const PageBytes& page) {
    return LoadU32(page.data(), offsetof(storage::PageHeader, fileId));
}

// Kinds of pages that belong to an object and tell which.
bool HasOwner(uint16_t kind) {
    const Use use = UseOfKind(kind);
    return use != Use::kFree && use != Use::kSuperblock && use != Use::kUnknown &&
           use != Use::kRecord;
}

bool HasRecord(const PageBytes& page, uint16_t type) {
    uint32_t end = 0;
    for (const RecordView& record : RecordsOf(page, &end))
        if (record.type == type) return true;
    return false;
}

// The same, and the record leads to what it must.
bool HasContent(const Image& image, const PageBytes& page, uint16_t type) {
    uint32_t end = 0;
    for (const RecordView& record : RecordsOf(page, &end))
        if (record.type == type)
            return record.link == 0 ||
                   (record.link < image.PageCount() &&
                    KindOf(image.Page(record.link)) == type + storage::kRecordKindBase);
    return false;
}

int HexDigit(WChar unit) {
    if (unit >= '0' && unit <= '9') return unit - '0';
    return unit >= 'A' && unit <= 'F' ? unit - 'A' + 10 : -1;
}

WString NumberAsName(uint32_t id) {
    const std::string name = fmt::format("?{}", id);
    return WString(name.begin(), name.end());
}

bool IsBetter(const FoundObject& a, const FoundObject& b) {
    if (a.id != b.id) return a.id < b.id;
    if (a.exact != b.exact) return a.exact;
    if (a.agrees != b.agrees) return a.agrees;
    if (a.inUse != b.inUse) return a.inUse;
    if ((a.entryPage != 0) != (b.entryPage != 0)) return a.entryPage != 0;
    return a.headerPage < b.headerPage;
}

}  // namespace

WString DecodedName(WStringView stored) {
    if (stored.starts_with(kMarker)) stored.remove_prefix(kMarker.size());
    WString out;
    for (size_t i = 0; i < stored.size(); ++i) {
        unsigned unit = 0, digits = 0;
        while (stored[i] == '#' && digits < 4 && i + 1 + digits < stored.size()) {
            const int digit = HexDigit(stored[i + 1 + digits]);
            if (digit < 0) break;
            unit = unit << 4 | static_cast<unsigned>(digit);
            ++digits;
        }
        out += digits == 4 ? static_cast<WChar>(unit) : stored[i];
        if (digits == 4) i += 4;
    }
    return out;
}

std::vector<EntryView> EntriesOf(const PageBytes& page) {
    std::vector<EntryView> entries;
    const auto take = [&](uint32_t from, uint32_t end) {
        for (; from + storage::kEntrySize <= end; from += storage::kEntrySize) {
            const auto entry = storage::Load<DirectoryEntry>(page.data(), from);
            if (entry.fileId != 0)
                entries.push_back({from, entry.fileId, entry.headerPage, entry.attributes});
        }
    };
    if (KindOf(page) == storage::kEntryPage) {
        take(storage::kPageHeaderSize, static_cast<uint32_t>(page.size()));
    } else if (KindOf(page) == storage::kHeaderPage) {
        uint32_t end = 0;
        for (const RecordView& record : RecordsOf(page, &end))
            if (record.type == storage::kDirectoryRecord && record.link == 0)
                take(record.offset + storage::kRecordHeaderSize, record.offset + record.size);
    }
    return entries;
}

std::string InWords(const ObjectPath& path) {
    const auto keyAt = [&](WStringView at) {
        return path.wayIsNamed ? "key \\" + Printable(at) : "a key without a name";
    };
    if (path.isValue)
        return (path.isNamed ? fmt::format("value \"{}\"", Printable(path.name))
                             : "a value without a name") +
               " of " + keyAt(path.key);
    if (path.isNamed && path.wayIsNamed) return keyAt(path.key);
    const size_t last = path.key.rfind('\\');
    const WString name = path.key.substr(last == WString::npos ? 0 : last + 1);
    return (path.isNamed ? fmt::format("key \"{}\"", Printable(name)) : "a key without a name") +
           " below " + keyAt(path.key.substr(0, last == WString::npos ? 0 : last));
}

std::string AttributesFault(const FoundObject& object) {
    constexpr uint32_t kEither = storage::kAttrFile | storage::kAttrDirectory;
    const uint32_t right = object.isKey ? storage::kAttrDirectory : storage::kAttrFile;
    const uint32_t said = object.attributes & ~uint32_t{storage::kAttrInherited};
    if (object.entryPage == 0 || said == right) return "";
    if (said == (kEither ^ right))
        return object.isKey ? "says that it is a value" : "says that it is a key";
    return fmt::format("has attributes 0x{:X}, which no {} has", object.attributes,
                       object.isKey ? "key" : "value");
}

Objects::Objects(const Image& image) : image_(image), ownerIds_(image.PageCount()), lists_(image) {
    if (image.PageCount() <= storage::kSuperblockNumber) return;
    const PageBytes super = image.Page(storage::kSuperblockNumber);
    const auto root =
        storage::Load<DirectoryEntry>(super.data(), offsetof(storage::Superblock, rootEntry));
    if (KindOf(super) == storage::kSuperblockPage && root.fileId != 0) root_ = root.fileId;
    Gather();
    Agree();
}

// Objects are twice in the list now: by their entries and by their header pages.
void Objects::Gather() {
    WalkMap(image_, [this](uint32_t number, Use use) {
        if (use != Use::kMap && number > storage::kSuperblockNumber)
            Take(number, use != Use::kFree);
    });
    for (auto* pages : {&data_, &names_})
        std::sort(pages->begin(), pages->end(), [](const LeveledPage& a, const LeveledPage& b) {
            return std::tie(a.id, a.level, a.page) < std::tie(b.id, b.level, b.page);
        });
}

// A page with the number of another is a copy that a change made, unless the map knows it.
void Objects::Take(uint32_t number, bool inUse) {
    const PageBytes page = image_.Page(number);
    const auto word = [&page](size_t offset) { return LoadU32(page.data(), offset); };
    const uint32_t level = word(offsetof(storage::PageHeader, level));
    const bool isNumbered = word(offsetof(storage::PageHeader, pageNumber)) == number;
    if (!isNumbered && SlotOf(image_, number) != KindOf(page)) return;
    if (inUse && HasOwner(KindOf(page))) ownerIds_[number] = IdOf(page);
    if (KindOf(page) == storage::kEntryPage) lists_.Add(number, page);
    TakeEntries(number, page, inUse);
    // The first page of an object is told by its level and by the record that is nowhere else.
    const bool isFirst = level == 0 || HasRecord(page, storage::kFileInfoRecord);
    if (KindOf(page) == storage::kHeaderPage && isFirst) TakeHeader(number, page, inUse);
    if (KindOf(page) == storage::kDataPage && inUse) data_.push_back({IdOf(page), level, number});
    if (KindOf(page) == storage::kNamePage && inUse) names_.push_back({IdOf(page), level, number});
}

std::span<const Objects::LeveledPage> Objects::Of(uint32_t id,
                                                  const std::vector<LeveledPage>& pages) {
    const auto isBelow = [](const LeveledPage& a, const LeveledPage& b) { return a.id < b.id; };
    const auto [begin, end] =
        std::equal_range(pages.begin(), pages.end(), LeveledPage{id, 0, 0}, isBelow);
    return {begin, end};
}

void Objects::TakeEntries(uint32_t number, const PageBytes& page, bool inUse) {
    for (const EntryView& entry : EntriesOf(page)) {
        FoundObject object;
        object.id = entry.fileId;
        object.parent = IdOf(page);
        object.headerPage = entry.headerPage;
        object.entryPage = number;
        object.entryOffset = entry.offset;
        object.attributes = entry.attributes;
        object.isKey = (entry.attributes & storage::kAttrDirectory) != 0;
        object.inUse = inUse;
        objects_.push_back(object);
    }
}

void Objects::TakeHeader(uint32_t number, const PageBytes& page, bool inUse) {
    FoundObject object;
    object.id = IdOf(page);
    object.parent = LoadU32(page.data(), offsetof(storage::HeaderPageHeader, parentId));
    object.headerPage = number;
    object.inUse = inUse;
    object.isKey = object.id == root_ || !HasRecord(page, storage::kDataRecord);
    if (object.id != 0) objects_.push_back(object);
}

// Of each id the best account stays, with what the others know besides.
void Objects::Agree() {
    std::vector<uint32_t> headers(image_.PageCount());  // ids of the objects that begin there
    for (const FoundObject& object : objects_)
        if (object.entryPage == 0) headers[object.headerPage] = object.id;
    for (FoundObject& object : objects_) {
        object.agrees = object.entryPage != 0 && object.headerPage < headers.size() &&
                        headers[object.headerPage] == object.id;
        object.exact =
            object.agrees && LoadU32(image_.Page(object.headerPage).data(),
                                     offsetof(storage::PageHeader, prevPage)) == object.entryPage;
    }
    PlaceByLists();
    std::sort(objects_.begin(), objects_.end(), IsBetter);
    size_t kept = 0;
    for (size_t i = 0; i < objects_.size(); ++i) {
        const FoundObject object = objects_[i];
        if (kept == 0 || objects_[kept - 1].id != object.id) {
            objects_[kept++] = object;
            if (object.entryPage != 0 && !object.agrees) objects_[kept - 1].headerPage = 0;
        } else if (objects_[kept - 1].headerPage == 0 && object.entryPage == 0) {
            objects_[kept - 1].headerPage = object.headerPage;
        }
    }
    objects_.resize(kept);
    JudgeByRecords();
}

// An entry is in the list that its page is a part of, and what the objects in it say helps to find
// out which one that is.
void Objects::PlaceByLists() {
    for (const FoundObject& object : objects_)
        if (object.exact)
            lists_.Vote(object.entryPage, LoadU32(image_.Page(object.headerPage).data(),
                                                  offsetof(storage::HeaderPageHeader, parentId)));
    lists_.Settle();
    for (FoundObject& object : objects_) {
        const uint32_t owner = object.entryPage == 0 ? 0 : lists_.OwnerOf(object.entryPage);
        if (owner != 0) object.parent = owner;
    }
}

// What has data and no list is a value, what has a list and no data a key, whatever its entry says;
// but for one that others stand in.
void Objects::JudgeByRecords() {
    std::unordered_set<uint32_t> parents;
    for (const FoundObject& object : objects_) parents.insert(object.parent);
    for (FoundObject& object : objects_) {
        if (object.entryPage == 0 || object.headerPage == 0) continue;
        const PageBytes page = image_.Page(object.headerPage);
        const bool hasData = HasContent(image_, page, storage::kDataRecord);
        const bool hasList =
            HasContent(image_, page, storage::kDirectoryRecord) || parents.contains(object.id);
        if (hasData != hasList) object.isKey = hasList;
    }
}

std::string Objects::ListFaultOf(uint32_t id) const {
    const FoundObject* object = WithId(id);
    return lists_.FaultOf(id, object == nullptr ? 0 : object->headerPage);
}

const FoundObject* Objects::WithId(uint32_t id) const {
    const auto at = std::lower_bound(
        objects_.begin(), objects_.end(), id,
        [](const FoundObject& object, uint32_t wanted) { return object.id < wanted; });
    return at != objects_.end() && at->id == id ? &*at : nullptr;
}

const FoundObject* Objects::OwnerOf(uint32_t page) const {
    if (page < storage::kRootHeaderNumber || page >= image_.PageCount() || image_.IsMapPage(page))
        return nullptr;
    const PageBytes bytes = image_.Page(page);
    return HasOwner(KindOf(bytes)) ? WithId(IdOf(bytes)) : nullptr;
}

const FoundObject* Objects::AtEntry(uint32_t page, WStringView stored) const {
    if (page < storage::kRootHeaderNumber || page >= image_.PageCount() || image_.IsMapPage(page))
        return nullptr;
    const PageBytes bytes = image_.Page(page);
    for (const EntryView& view : EntriesOf(bytes)) {
        const uint8_t* units = bytes.data() + view.offset + offsetof(DirectoryEntry, name);
        if (UnitsAt(units, storage::kEntryNameUnits) != stored) continue;
        const FoundObject* object = WithId(view.fileId);
        if (object != nullptr && object->entryPage == page && object->entryOffset == view.offset)
            return object;
    }
    return nullptr;
}

WString Objects::NameOf(const FoundObject& object) const {
    if (object.entryPage == 0) return NumberAsName(object.id);
    const StoredName stored = ReadStoredName(image_, *this, object);
    const WString name = DecodedName(stored.units);
    return stored.fault.empty() ? name : name + NumberAsName(object.id);
}

ObjectPath Objects::PathOf(const FoundObject& object) const {
    ObjectPath path;
    path.isValue = !object.isKey;
    if (path.isValue) {
        path.name = NameOf(object);
        path.isNamed = object.entryPage != 0;
        if (path.name == kUnnamed) path.name.clear();
    }
    uint32_t id = path.isValue ? object.parent : object.id;
    std::unordered_set<uint32_t> seen;  // damage may have keys below themselves
    while (id != root_ && id != 0 && seen.insert(id).second) {
        const FoundObject* key = WithId(id);
        WString name = key != nullptr ? NameOf(*key) : NumberAsName(id);
        const bool named = key != nullptr && key->entryPage != 0;
        (id == object.id ? path.isNamed : path.wayIsNamed) &= named;
        if (!path.key.empty()) name += '\\';
        path.key.insert(0, name);
        if (key == nullptr) return path;
        if (path.key.size() > kLongestPath) {
            path.key.insert(0, WTEXT("...\\"));
            return path;
        }
        id = key->parent;
    }
    path.leadsToRoot = id == root_;
    return path;
}

}  // namespace fbr
