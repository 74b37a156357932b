// Second pass: directory entries and their names.
#include "storage/lifecycle/CheckRun.h"

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
Status RightNameLength(CheckRun* run, const DirectoryEntry& entry, uint32_t* length) {
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

Status CheckEntry(CheckRun* run, uint32_t page, DirectoryEntry* entry, uint32_t fileId,
                  ItemList<CheckItem>* work) {
    if (!EntryIsGood(run, page, *entry)) {
        TellBadEntry(run, page, *entry);
        entry->fileId = entry->headerPage = 0;
        entry->nameLength = entry->namePage = 0;
        return kOk;
    }
    Claim(run, entry->headerPage, 0);
    if (run->digests[entry->headerPage].parentId != fileId) {
        run->digests[entry->headerPage].parentId = fileId;
        NoteChange(run, entry->headerPage);
        TellBadLink(run, entry->headerPage);
    }
    uint32_t length = 0;
    if (entry->namePage != 0) Claim(run, entry->namePage, 0);
    const Status status = RightNameLength(run, *entry, &length);
    if (status != kOk) return status;
    if (length != entry->nameLength) {
        TellBadEntry(run, page, *entry);
        entry->nameLength = length;
    }
    return work->Add(CheckItem{entry->headerPage, StreamTypeOf(*entry)}) ? kOk : kNoMemory;
}

}  // namespace

Status CheckEntries(CheckRun* run, uint32_t page, uint8_t* bytes, uint32_t count, uint32_t fileId,
                    ItemList<CheckItem>* work, bool* changed) {
    for (uint32_t i = 0; i < count; ++i) {
        uint8_t* place = bytes + i * kEntrySize;
        const DirectoryEntry before = Load<DirectoryEntry>(place, 0);
        if (before.fileId == 0) continue;
        DirectoryEntry entry = before;
        const Status status = CheckEntry(run, page, &entry, fileId, work);
        if (status != kOk) return status;
        if (std::memcmp(&entry, &before, sizeof entry) == 0) continue;
        Store(place, 0, entry);
        *changed = true;
    }
    return kOk;
}

}  // namespace storage
