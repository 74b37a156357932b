// SPDX-License-Identifier: MIT
// The last step of a repair: what was changed in memory goes to the file. Where that is more than
// one page beside the map, the pages are first laid down behind the end of the file as a redo log,
// so that a repair that is killed is finished by whoever opens the container next.
#include <algorithm>

#include "storage/check/CheckOverlay.h"
#include "storage/check/CheckRun.h"
#include "storage/core/PageIo.h"
#include "storage/core/SwitchMark.h"

namespace storage {

namespace {

constexpr uint32_t kHeads = 16;                     // of a first-level page of the log
constexpr uint32_t kNextSecond = 16, kLogged = 20;  // of a second-level page
constexpr Status kDiskFull = static_cast<Status>(platform::kErrorDiskFull);

struct RepairWriter {
    CheckRun* run;
    StorageContext* context;
    NumberList pages = {};  // to be written, without those of the map and page 1
    NumberList mapPages = {};
    uint32_t end = 0;  // where the log begins, and after it where it goes on

    Status Gather();
    Status WriteToFile(const uint8_t* buffer, uint32_t page);
    Status WriteFinal(uint32_t page);
    Status WriteAll(const NumberList& list);
    bool MayLog() const;
    Status NextLogPage(uint32_t* page);
    Status WriteRawPage(const uint8_t* buffer, uint32_t page);
    Status LogPages(uint32_t* head);
    Status SwitchLogOn(uint32_t head);
    Status WriteLostPages();
    Status CutTail();
    Status WritePageOne();

    uint32_t InFileOrder(uint32_t value) const {
        return context->byteSwapped ? Swap32(value) : value;
    }
};

Status RepairWriter::Gather() {
    NumberList laid;
    if (!run->overlay->Changed(&laid)) return kNoMemory;
    const auto isLaid = [&](uint32_t page) {
        return std::binary_search(laid.begin(), laid.end(), page + context->basePage);
    };
    for (uint32_t page = 0; page < run->pages; ++page) {
        if (page == kSuperblockNumber) continue;
        if ((run->marks[page] & kMarkChanged) == 0 && !isLaid(page)) continue;
        NumberList& list = context->IsMapPage(page) ? mapPages : pages;
        if (!list.Add(page)) return kNoMemory;
    }
    return kOk;
}

Status RepairWriter::WriteToFile(const uint8_t* buffer, uint32_t page) {
    context->file = run->overlay->File();
    const Status status = WritePage(context, buffer, page);
    context->file = run->overlay;
    return status;
}

Status RepairWriter::WriteFinal(uint32_t page) {
    const Status status = LoadChecked(run, page, run->other);
    return status == kOk ? WriteToFile(run->other, page) : status;
}

Status RepairWriter::WriteAll(const NumberList& list) {
    Status status = kOk;
    for (uint32_t i = 0; i < list.Count() && status == kOk; ++i) status = WriteFinal(list[i]);
    return status;
}

// A file of fixed or limited size takes no log behind its end.
bool RepairWriter::MayLog() const {
    return pages.Count() > 1 && !context->logInFile && context->Super()->maxPages == 0 &&
           uint64_t{run->pages} + 2 * uint64_t{pages.Count()} + 16 < kUnknownPages / 2;
}

Status RepairWriter::WriteRawPage(const uint8_t* buffer, uint32_t page) {
    return WritePageRaw(context, run->overlay->File(), buffer, context->pageSize,
                        uint64_t{context->basePage} + page, context->pageSize);
}

// Places of map pages are filled with zeros: such a group has no map yet.
Status RepairWriter::NextLogPage(uint32_t* page) {
    if (context->IsMapPage(end)) {
        std::memset(run->map, 0, context->pageSize);
        const Status status = WriteRawPage(run->map, end++);
        if (status != kOk) return status;
    }
    *page = end++;
    return kOk;
}

// A copy of every page, and the lists of the copies.
Status RepairWriter::LogPages(uint32_t* head) {
    const uint32_t perPage = (context->pageSize - kLogged) / 4;
    const uint32_t lists = (pages.Count() + perPage - 1) / perPage;
    uint32_t list = 0;
    Status status = NextLogPage(head);
    if (status == kOk) status = NextLogPage(&list);
    std::memset(run->header, 0, context->pageSize);
    Store(run->header, kHeads, InFileOrder(list));
    if (status == kOk) status = WriteRawPage(run->header, *head);
    for (uint32_t i = 0, at = 0; i < lists && status == kOk; ++i) {
        std::memset(run->header, 0, context->pageSize);
        for (uint32_t k = 0; k < perPage && at < pages.Count() && status == kOk; ++k, ++at) {
            uint32_t copy = 0;
            status = NextLogPage(&copy);
            if (status == kOk) status = LoadChecked(run, pages[at], run->other);
            const uint16_t kind = HeaderOf(run->other)->kind;
            HeaderOf(run->other)->pendingKind = context->byteSwapped ? Swap16(kind) : kind;
            if (status == kOk) status = WriteToFile(run->other, copy);
            Store(run->header, kLogged + 4 * k, InFileOrder(copy));
        }
        uint32_t next = 0;
        if (status == kOk && i + 1 < lists) status = NextLogPage(&next);
        Store(run->header, kNextSecond, InFileOrder(next));
        if (status == kOk) status = WriteRawPage(run->header, list);
        list = next;
    }
    return status;
}

// Only in the file: writing page 1 as it is to be switches the log off again.
Status RepairWriter::SwitchLogOn(uint32_t head) {
    Superblock* super = context->Super();
    const Superblock before = *super;
    super->logPending = 1;
    super->logChainHead = head;
    super->flags |= kFlagChainedLog;
    const Status status = WriteToFile(context->superblock, kSuperblockNumber);
    *super = before;
    return status;
}

Status RepairWriter::WriteLostPages() {
    Status status = kOk;
    for (uint32_t page = 0; page < run->pages && status == kOk; ++page)
        if ((run->marks[page] & kMarkLost) != 0) status = WriteFinal(page);
    return status;
}

Status RepairWriter::CutTail() {
    uint64_t size = 0;
    platform::PageFile* file = run->overlay->File();
    const platform::Error error = file->Size(&size);
    if (error != 0) return static_cast<Status>(error);
    const uint64_t count = uint64_t{run->pages} + context->basePage;
    return size == count << context->pageShift ? kOk : CutFile(file, count, context->pageSize);
}

Status RepairWriter::WritePageOne() {
    Status status = ReadPage(context, run->other, kSuperblockNumber);
    if (status != kOk || std::memcmp(run->other, context->superblock, context->pageSize) == 0)
        return status;
    return WriteToFile(context->superblock, kSuperblockNumber);
}

}  // namespace

Status WriteRepair(CheckRun* run) {
    RepairWriter writer{run, run->context};
    writer.end = run->pages;
    Status status = writer.Gather();
    // Who has the container open sees that it is another one now.
    Superblock* super = run->context->Super();
    SwitchList list;
    const bool settled = super->changing == 0 && GetSwitchList(run->context, &list) &&
                         AreSwitched(run->context, list);
    super->changing = 0;
    if (!writer.pages.Empty() || !writer.mapPages.Empty() || !settled) {
        super->transactionCounter += 2;
        ClearSwitchList(run->context);
    }
    // The map first: it says of every page that stays that it is in use, and the log needs it.
    if (status == kOk) status = writer.WriteAll(writer.mapPages);
    if (status == kOk && writer.MayLog()) {
        uint32_t head = 0;
        status = writer.LogPages(&head);
        // Without room for a log it has to go without one.
        if (status == kDiskFull)
            status = writer.CutTail();
        else if (status == kOk)
            status = writer.SwitchLogOn(head);
    }
    if (status == kOk) status = writer.WriteAll(writer.pages);
    if (status == kOk) status = writer.WriteLostPages();
    if (status == kOk) status = writer.WritePageOne();
    return status == kOk ? writer.CutTail() : status;
}

}  // namespace storage
