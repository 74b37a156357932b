// SPDX-License-Identifier: MIT
// Second pass: directory entries and their names.
#include <algorithm>

#include "storage/check/CheckRun.h"

namespace storage {

namespace {

uint32_t UnitsPerPage(const CheckRun* run) {
    return run->context->payloadSize / 2;
}

// Units up to the last one that is not 0.
uint32_t UnitsUsed(const uint8_t* units, uint32_t count) {
    while (count > 0 && LoadU16(units, 2 * (count - 1)) == 0) --count;
    return count;
}

// What the name's length can be, given the pages that it has.
Status PossibleLength(CheckRun* run, const DirectoryEntry& entry, uint32_t* length) {
    *length = entry.nameLength;
    if (entry.namePage == 0) {
        if (*length == 0 || *length > kEntryNameUnits)
            *length = UnitsUsed(reinterpret_cast<const uint8_t*>(entry.name), kEntryNameUnits);
        return kOk;
    }
    uint32_t count = 0, last = 0;
    ClaimChain(run, entry.namePage, &count, &last);
    const uint32_t units = UnitsPerPage(run);
    const uint64_t tail = *length > kEntryNameUnits ? *length - kEntryNameUnits : 0;
    if ((tail + units - 1) / units == count) return kOk;
    const Status status = LoadChecked(run, last, run->other);
    const uint32_t used = UnitsUsed(run->other + kPageHeaderSize, units);
    *length = kEntryNameUnits + (count - 1) * units + (used == 0 ? 1 : used);
    return status;
}

// True when what the entry refers to is what it says. Nothing is claimed otherwise.
bool EntryIsGood(CheckRun* run, uint32_t page, const DirectoryEntry& entry) {
    if (!TryClaim(run, entry.headerPage, page, kHeaderPage, entry.fileId)) return false;
    return entry.namePage == 0 || TryClaim(run, entry.namePage, page, kNamePage, entry.fileId);
}

uint16_t StreamTypeOf(const DirectoryEntry& entry) {
    return (entry.attributes & kAttrLink) != 0 ? kLinkRecord : kDataRecord;
}

// The first record of that type, null where there is none.
const uint8_t* FindRecord(const uint8_t* header, uint32_t pageSize, uint16_t type) {
    const uint32_t end = std::min<uint32_t>(LoadU16(header, 32), pageSize);
    for (uint32_t at = kRecordsStart; at + kRecordHeaderSize <= end;) {
        const uint8_t* const record = header + at;
        const uint32_t size = LoadU16(record, record::kSize);
        if (LoadU16(record, record::kType) == type) return record;
        if (size < kRecordHeaderSize) break;
        at += size;
    }
    return nullptr;
}

// True when the object has that record, and it leads to what it must.
bool HasContent(const CheckRun* run, const uint8_t* header, uint16_t type) {
    const uint8_t* const record = FindRecord(header, run->context->pageSize, type);
    if (record == nullptr) return false;
    const uint32_t link = LoadU32(record, record::kLink);
    return link == 0 || (link < run->pages && run->digests[link].kind == type + kRecordKindBase);
}

// The key store makes keys and values, and nothing that is both, hidden or a link. A value has
// data, and a key has none.
Status RightAttributes(CheckRun* run, DirectoryEntry* entry) {
    if (!run->isStore) return kOk;
    constexpr uint8_t kBoth = kMarkData | kMarkList;
    bool isKey = (entry->attributes & kAttrDirectory) != 0;
    if ((run->marks[entry->headerPage] & kBoth) == (isKey ? kMarkData : kMarkList)) {
        const Status status = LoadChecked(run, entry->headerPage, run->other);
        if (status != kOk) return status;
        if (HasContent(run, run->other, isKey ? kDataRecord : kDirectoryRecord)) isKey = !isKey;
    }
    entry->attributes = (entry->attributes & kAttrInherited) | (isKey ? kAttrDirectory : kAttrFile);
    return kOk;
}

// One used entry. `entry` is free afterwards when nothing can be made of it.
struct EntryCheck {
    CheckRun* run;
    const EntryPlace& place;
    ItemList<CheckItem>* work;
    CheckNames* names;

    Status Check(DirectoryEntry* entry, uint32_t offset);
    Status CheckName(DirectoryEntry* entry, uint32_t offset);
};

Status EntryCheck::CheckName(DirectoryEntry* entry, uint32_t offset) {
    uint32_t length = 0, right = 0;
    storage::CheckName name{0, place.page, offset, entry->fileId, false, false};
    const uint32_t attributes = entry->attributes;
    Status status = RightAttributes(run, entry);
    if (status == kOk) status = PossibleLength(run, *entry, &length);
    if (status == kOk) status = JudgeName(run, *entry, length, &name, &right);
    if (status == kOk && right != length) status = JudgeName(run, *entry, right, &name, &length);
    if (status != kOk) return status;
    name.changed = right != entry->nameLength;
    if (name.changed || attributes != entry->attributes) TellBadEntry(run, place.page, *entry);
    entry->nameLength = right;
    return names->Add(name) ? kOk : kNoMemory;
}

Status EntryCheck::Check(DirectoryEntry* entry, uint32_t offset) {
    if (!EntryIsGood(run, place.page, *entry)) {
        TellBadEntry(run, place.page, *entry);
        entry->fileId = entry->headerPage = 0;
        entry->nameLength = entry->namePage = 0;
        return kOk;
    }
    Claim(run, entry->headerPage, 0);
    if (run->digests[entry->headerPage].parentId != place.fileId) {
        run->digests[entry->headerPage].parentId = place.fileId;
        NoteChange(run, entry->headerPage);
        TellBadLink(run, entry->headerPage);
    }
    if (entry->namePage != 0) Claim(run, entry->namePage, 0);
    const Status status = CheckName(entry, offset);
    if (status != kOk) return status;
    const bool isValue = run->isStore && (entry->attributes & kAttrDirectory) == 0;
    const CheckItem item{entry->headerPage, StreamTypeOf(*entry), isValue};
    return work->Add(item) ? kOk : kNoMemory;
}

}  // namespace

uint8_t RecordMarks(const uint8_t* page, uint32_t pageSize) {
    const auto mark = [&](uint16_t type, PageMark there) {
        return FindRecord(page, pageSize, type) != nullptr ? there : 0;
    };
    return static_cast<uint8_t>(mark(kDataRecord, kMarkData) | mark(kDirectoryRecord, kMarkList));
}

Status CheckEntries(CheckRun* run, const EntryPlace& place, ItemList<CheckItem>* work,
                    CheckNames* names, bool* changed) {
    EntryCheck check{run, place, work, names};
    for (uint32_t i = 0; i < place.count; ++i) {
        const uint32_t offset = place.offset + i * kEntrySize;
        const DirectoryEntry before = Load<DirectoryEntry>(place.buffer, offset);
        if (before.fileId == 0) continue;
        DirectoryEntry entry = before;
        const Status status = check.Check(&entry, offset);
        if (status != kOk) return status;
        if (std::memcmp(&entry, &before, sizeof entry) == 0) continue;
        Store(place.buffer, offset, entry);
        *changed = true;
    }
    return kOk;
}

}  // namespace storage
