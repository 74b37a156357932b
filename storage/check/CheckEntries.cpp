// SPDX-License-Identifier: MIT
// Second pass: directory entries and their names.
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

// The key store makes keys and values, and nothing that is both, hidden or a link.
uint32_t RightAttributes(const CheckRun* run, const DirectoryEntry& entry) {
    if (!run->isStore) return entry.attributes;
    const bool isKey = (entry.attributes & kAttrDirectory) != 0;
    return (entry.attributes & kAttrInherited) | (isKey ? kAttrDirectory : kAttrFile);
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
    Status status = PossibleLength(run, *entry, &length);
    if (status == kOk) status = JudgeName(run, *entry, length, &name, &right);
    if (status == kOk && right != length) status = JudgeName(run, *entry, right, &name, &length);
    if (status != kOk) return status;
    const uint32_t attributes = RightAttributes(run, *entry);
    name.changed = right != entry->nameLength;
    if (name.changed || attributes != entry->attributes) TellBadEntry(run, place.page, *entry);
    entry->nameLength = right;
    entry->attributes = attributes;
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
