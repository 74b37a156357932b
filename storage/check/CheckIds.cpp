// SPDX-License-Identifier: MIT
// Second pass, at its end: objects that share an id. Their pages tell them apart all the same, but
// the engine knows the objects in memory by their ids, so all but one of them get another.
#include <algorithm>

#include "storage/check/CheckRun.h"

namespace storage {

namespace {

struct Owner {
    uint32_t id;
    uint32_t headerPage;
};

// One object on its way to another id. All that its pages refer to has been found good.
struct IdChange {
    CheckRun* run;
    uint32_t headerPage;
    uint32_t id;

    void TakeChain(uint32_t first);
    void AdoptChildren(const uint8_t* entries, uint32_t count);
    Status AdoptByPages(uint32_t first);
    Status TakeHeaderPage(uint32_t page);
    uint8_t* FindEntry(uint8_t* page);
    Status ChangeEntry();
};

void IdChange::TakeChain(uint32_t first) {
    for (uint32_t page = first; page != 0; page = run->digests[page].nextPage) {
        run->digests[page].fileId = id;
        NoteChange(run, page);
    }
}

void IdChange::AdoptChildren(const uint8_t* entries, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        const DirectoryEntry entry = Load<DirectoryEntry>(entries, i * kEntrySize);
        if (entry.fileId == 0) continue;
        run->digests[entry.headerPage].parentId = id;
        NoteChange(run, entry.headerPage);
    }
}

Status IdChange::AdoptByPages(uint32_t first) {
    for (uint32_t page = first; page != 0; page = run->digests[page].nextPage) {
        const Status status = LoadChecked(run, page, run->other);
        if (status != kOk) return status;
        AdoptChildren(run->other + kPageHeaderSize, run->context->payloadSize / kEntrySize);
    }
    return kOk;
}

Status IdChange::TakeHeaderPage(uint32_t page) {
    Status status = LoadChecked(run, page, run->header);
    const uint32_t end = HeaderPageOf(run->header)->endOffset;
    for (uint32_t at = kRecordsStart; at < end && status == kOk;) {
        const uint8_t* record = run->header + at;
        const uint32_t size = LoadU16(record, record::kSize);
        const uint32_t link = LoadU32(record, record::kLink);
        TakeChain(link);
        if (LoadU16(record, record::kType) == kDirectoryRecord) {
            if (link != 0)
                status = AdoptByPages(link);
            else
                AdoptChildren(record + record::kPayload, (size - kRecordHeaderSize) / kEntrySize);
        }
        at += size;
    }
    return status;
}

// The object's entry in a page of its directory.
uint8_t* IdChange::FindEntry(uint8_t* page) {
    // Entries lie 64 bytes apart from the payload's start, or from that of a record.
    const auto find = [&](uint8_t* entries, uint32_t count) -> uint8_t* {
        for (uint32_t i = 0; i < count; ++i, entries += kEntrySize)
            if (LoadU32(entries, 0) != 0 && LoadU32(entries, 4) == headerPage) return entries;
        return nullptr;
    };
    if (HeaderOf(page)->kind == kEntryPage)
        return find(page + kPageHeaderSize, run->context->payloadSize / kEntrySize);
    for (uint32_t at = kRecordsStart; at < HeaderPageOf(page)->endOffset;) {
        const uint32_t size = LoadU16(page, at + record::kSize);
        const bool holdsEntries = LoadU16(page, at + record::kType) == kDirectoryRecord &&
                                  LoadU32(page, at + record::kLink) == 0;
        uint8_t* entry = holdsEntries ? find(page + at + record::kPayload,
                                             (size - kRecordHeaderSize) / kEntrySize)
                                      : nullptr;
        if (entry != nullptr) return entry;
        at += size;
    }
    return nullptr;
}

Status IdChange::ChangeEntry() {
    const uint32_t page = run->digests[headerPage].prevPage;
    const Status status = LoadChecked(run, page, run->other);
    if (status != kOk) return status;
    uint8_t* place = FindEntry(run->other);
    if (place == nullptr) return kCorrupt;
    DirectoryEntry entry = Load<DirectoryEntry>(place, 0);
    TellBadEntry(run, page, entry);
    TakeChain(entry.namePage);
    entry.fileId = id;
    Store(place, 0, entry);
    return StoreChecked(run, page, run->other);
}

Status ChangeId(CheckRun* run, uint32_t headerPage, uint32_t id) {
    IdChange change{run, headerPage, id};
    Status status = change.ChangeEntry();
    for (uint32_t page = headerPage; page != 0 && status == kOk; page = run->digests[page].nextPage)
        status = change.TakeHeaderPage(page);
    if (status == kOk) change.TakeChain(headerPage);
    return status;
}

}  // namespace

Status CheckIds(CheckRun* run) {
    const uint32_t root = run->context->Super()->rootEntry.headerPage;
    ItemList<Owner> owners;
    for (const uint32_t page : run->objects)
        if (!owners.Add(Owner{run->digests[page].fileId, page})) return kNoMemory;
    std::sort(owners.begin(), owners.end(), [root](const Owner& a, const Owner& b) {
        if (a.id != b.id) return a.id < b.id;
        return b.headerPage != root && (a.headerPage == root || a.headerPage < b.headerPage);
    });
    uint32_t unused = kRootFileId, behind = 0;
    for (uint32_t i = 1; i < owners.Count(); ++i) {
        if (owners[i].id != owners[i - 1].id) continue;
        // The lowest id that nobody has.
        for (++unused; behind < owners.Count() && owners[behind].id <= unused; ++behind)
            if (owners[behind].id == unused) ++unused;
        const Status status = ChangeId(run, owners[i].headerPage, unused);
        if (status != kOk) return status;
    }
    return kOk;
}

}  // namespace storage
