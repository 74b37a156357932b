// SPDX-License-Identifier: MIT
// Third and fourth pass: what nothing refers to, and the page map.
#include <algorithm>

#include "storage/check/CheckRun.h"

namespace storage {

namespace {

// Of a page that was not reached, whether its links hold between it and the pages they name.
struct LostPage {
    CheckRun* run;
    uint32_t page;
    const PageDigest& digest;

    bool IsPage(uint32_t number, uint16_t kind) const {
        if (number <= kSuperblockNumber || number >= run->pages) return false;
        const PageDigest& there = run->digests[number];
        return !run->context->IsMapPage(number) && there.pageNumber == number &&
               there.kind == kind && there.fileId == digest.fileId;
    }
    Status CountIn(uint32_t number, uint32_t* count) const;
    Status PrevIsGood(bool* good) const;
    Status ListIsGood(bool* good) const;
};

uint32_t CountInEntries(const uint8_t* entries, uint32_t count, uint32_t page) {
    uint32_t found = 0;
    for (uint32_t i = 0; i < count; ++i, entries += kEntrySize) {
        if (LoadU32(entries, 0) == 0) continue;
        found += LoadU32(entries, 4) == page;
        found += LoadU32(entries, 16) == page;
    }
    return found;
}

uint32_t CountInRecords(const uint8_t* header, uint32_t pageSize, uint32_t page) {
    const uint32_t end = std::min<uint32_t>(LoadU16(header, 32), pageSize);
    uint32_t found = 0;
    for (uint32_t at = kRecordsStart; at + kRecordHeaderSize <= end;) {
        const uint32_t size = LoadU16(header, at + record::kSize);
        if (size < kRecordHeaderSize || at + size > end) break;
        const uint32_t link = LoadU32(header, at + record::kLink);
        found += link == page;
        if (link == 0 && LoadU16(header, at) == kDirectoryRecord)
            found += CountInEntries(header + at + record::kPayload,
                                    (size - kRecordHeaderSize) / kEntrySize, page);
        at += size;
    }
    return found;
}

// How many times page `number` refers to this one.
Status LostPage::CountIn(uint32_t number, uint32_t* count) const {
    *count = 0;
    if (number <= kSuperblockNumber || number >= run->pages || run->context->IsMapPage(number) ||
        run->digests[number].pageNumber != number)
        return kOk;
    const Status status = LoadChecked(run, number, run->other);
    if (status != kOk) return status;
    const uint8_t* payload = run->other + kPageHeaderSize;
    const uint32_t size = run->context->payloadSize;
    switch (run->digests[number].kind) {
        case kHeaderPage:
            *count = CountInRecords(run->other, run->context->pageSize, page);
            break;
        case kEntryPage:
            *count = CountInEntries(payload, size / kEntrySize, page);
            break;
        case kPageListPage:
            for (uint32_t at = 0; at + 4 <= size; at += 4) *count += LoadU32(payload, at) == page;
            break;
        default:
            break;
    }
    return kOk;
}

Status LostPage::PrevIsGood(bool* good) const {
    const uint32_t prev = digest.prevPage;
    *good = prev == 0;
    if (*good) return kOk;
    if (digest.level != 0) {
        *good = IsPage(prev, digest.kind) && run->digests[prev].nextPage == page;
        return kOk;
    }
    uint32_t count = 0;
    const Status status = CountIn(prev, &count);
    *good = count == 1;
    return status;
}

Status LostPage::ListIsGood(bool* good) const {
    const uint32_t list = digest.listPage;
    *good = list == 0;
    if (*good || !IsPage(list, kPageListPage)) return kOk;
    uint32_t count = 0;
    const Status status = CountIn(list, &count);
    *good = count == 1;
    return status;
}

Status TellLinks(CheckRun* run, uint32_t page) {
    const LostPage lost{run, page, run->digests[page]};
    if (lost.digest.pageNumber != page || !IsObjectPage(lost.digest.kind)) return kOk;
    bool good = false;
    Status status = lost.ListIsGood(&good);
    if (status != kOk) return status;
    if (!good) TellBadLink(run, page);
    const uint32_t next = lost.digest.nextPage;
    if (next != 0 && !(lost.IsPage(next, lost.digest.kind) && run->digests[next].prevPage == page))
        TellBadLink(run, page);
    status = lost.PrevIsGood(&good);
    if (status == kOk && !good) TellBadLink(run, page);
    return status;
}

bool IsLost(const CheckRun* run, uint32_t page) {
    return !run->context->IsMapPage(page) && (run->marks[page] & kMarkInUse) == 0 &&
           !SlotIsFree(run->slots[page]);
}

uint16_t RightSlot(const CheckRun* run, uint32_t page) {
    if (page == kSuperblockNumber) return kSuperblockPage;
    if ((run->marks[page] & kMarkInUse) != 0) return run->digests[page].kind;
    return (run->marks[page] & kMarkLost) != 0 ? uint16_t{kFreePage} : run->slots[page];
}

// True when the map page is wrong in more than the lost pages, which are told of one by one.
bool MapIsWrong(const CheckRun* run, const uint8_t* map, const uint8_t* right, uint32_t first) {
    for (uint32_t k = 0; k < run->context->MapGroup(); ++k) {
        if (LoadU16(map, 2 * k) == LoadU16(right, 2 * k)) continue;
        const bool inFile = first + k < run->pages;
        if (k == 0 || !inFile || (run->marks[first + k] & kMarkLost) == 0) return true;
    }
    return false;
}

}  // namespace

Status FindLostPages(CheckRun* run) {
    if (run->besideWriter || run->lock.IsBesideWriter()) return kOk;
    // Their links first, before any of them counts as freed.
    for (uint32_t page = kSuperblockNumber + 1; page < run->pages; ++page) {
        if (!IsLost(run, page)) continue;
        const Status status = TellLinks(run, page);
        if (status != kOk) return status;
    }
    for (uint32_t page = 0; page < run->pages && !run->cancelled; ++page)
        Tell(run, kCheckReferences, page, run->pages);
    for (uint32_t page = kSuperblockNumber; page < run->pages && !run->cancelled; ++page) {
        if (IsLost(run, page) && page != kSuperblockNumber) {
            run->marks[page] = kMarkLost;
            run->digests[page].kind = kFreePage;
            run->digests[page].pageNumber = page;
            if (run->repair) run->clean = 0;
            ++run->findings;
            Tell(run, kFoundLostPage, page, 0);
        } else if ((run->marks[page] & kMarkInUse) == 0) {
            run->marks[page] = 0;
        }
        if (run->repair && !run->context->IsMapPage(page)) Tell(run, kCheckWrite, page, run->pages);
    }
    return kOk;
}

Status CheckMap(CheckRun* run) {
    StorageContext* context = run->context;
    for (uint32_t first = 0; first < run->pages && !run->cancelled; first += context->MapGroup()) {
        Status status = ReadPage(context, run->map, first);
        if (status != kOk) return status;
        std::memset(run->other, 0, context->pageSize);
        bool used = false;
        for (uint32_t k = 1; k < context->MapGroup() && first + k < run->pages; ++k) {
            Store(run->other, 2 * k, RightSlot(run, first + k));
            used = used || LoadU16(run->other, 2 * k) != 0;
        }
        // The end of a container with its log inside has no map pages yet.
        const bool none = context->logInFile && first != 0 && LoadU16(run->map, 0) == 0 && !used;
        if (!none) {
            Store(run->other, 0, static_cast<uint16_t>(context->pageShift));
            if (MapIsWrong(run, run->map, run->other, first)) TellBadLink(run, first);
            if (std::memcmp(run->map, run->other, context->pageSize) != 0)
                status = StoreChecked(run, first, run->other);
            if (status != kOk) return status;
        }
        if (run->repair) run->clean = 0;
        Tell(run, kCheckWrite, first, run->pages);
    }
    return kOk;
}

}  // namespace storage
