// SPDX-License-Identifier: MIT
// Check and repair: one run, from the opening of the file to its end. A check does all that a
// repair does but for the last step: both work on the file with their changes laid over it in
// memory, so that a check tells what a repair would mend, and a run that ends early has changed
// nothing.
#include <new>

#include "storage/StorageApi.h"
#include "storage/check/CheckOverlay.h"
#include "storage/check/CheckRun.h"
#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/core/Recovery.h"
#include "storage/lifecycle/ContextLife.h"
#include "storage/lifecycle/Locate.h"
#include "storage/lifecycle/RunLock.h"

namespace storage {

CheckRun::~CheckRun() {
    platform::HeapRelease(digests);
    platform::HeapRelease(slots);
    platform::HeapRelease(marks);
    platform::HeapRelease(map);
    platform::HeapRelease(header);
    platform::HeapRelease(other);
    for (const PageWindow& window : windows) platform::HeapRelease(window.bytes);
}

namespace {

// A check reads and nothing else, and needs no more of the file than that.
Status OpenForCheck(CheckRun* run, const WChar* path) {
    StorageContext* context = run->context;
    Status status = kOk;
    if (run->repair) {
        status = OpenContainerFile(context, path);
        if (status == kOk && context->readOnly) status = kReadOnly;
    } else {
        platform::SetLastError(platform::kErrorSuccess);
        context->file =
            OpenPageFile(path, ResourceType::FileReadOnly, platform::Disposition::OpenExisting);
        if (context->file == nullptr) status = OpenFailure();
    }
    if (status == kOk && !run->callerHoldsLock) status = run->lock.Take(path, !run->repair);
    if (status != kOk) return status;
    run->overlay = new (std::nothrow) CheckOverlay(context->file);
    if (run->overlay == nullptr) return kNoMemory;
    context->file = run->overlay;
    return kOk;
}

Status Measure(CheckRun* run) {
    StorageContext* context = run->context;
    uint64_t size = 0;
    const platform::Error error = context->file->Size(&size);
    if (error != 0) return static_cast<Status>(error);
    ContainerPlace place;
    Status status = LocateContainer(context->file, size, &place);
    if (status > 0) return status;
    const bool found =
        status == kOk && place.pageShift >= kMinPageShift && place.pageShift <= kMaxPageShift;
    context->byteSwapped = status == kOk && place.byteSwapped;
    context->pageShift = place.pageShift;
    if (!found) {
        context->byteSwapped = false;  // as a probe leaves it, whatever page 1 says
        status = ProbePageShift(context->file, place.base, &context->pageShift);
        if (status != kOk) return status;
    }
    context->pageSize = 1u << context->pageShift;
    context->payloadSize = context->pageSize - kPageHeaderSize;
    const uint64_t base = place.base * kLocateBlock >> context->pageShift;
    const uint64_t pages = size >> context->pageShift;
    if (pages >= kUnknownPages || pages < base + 3) return kNotContainer;
    context->basePage = static_cast<uint32_t>(base);
    run->pages = context->totalPages = static_cast<uint32_t>(pages - base);
    run->trailing = (size & (context->pageSize - 1)) != 0;
    run->overlay->SetPageSize(context->pageSize);
    return kOk;
}

uint8_t* Allocate(uint64_t count, size_t size) {
    return static_cast<uint8_t*>(platform::HeapAllocateZeroed(count * size));
}

Status AllocateRun(CheckRun* run) {
    const uint32_t pageSize = run->context->pageSize;
    run->digests = reinterpret_cast<PageDigest*>(Allocate(run->pages, sizeof(PageDigest)));
    run->slots = reinterpret_cast<uint16_t*>(Allocate(run->pages, sizeof(uint16_t)));
    run->marks = Allocate(run->pages, 1);
    run->map = Allocate(1, pageSize);
    run->header = Allocate(1, pageSize);
    run->other = Allocate(1, pageSize);
    const bool all = run->digests != nullptr && run->slots != nullptr && run->marks != nullptr &&
                     run->map != nullptr && run->header != nullptr && run->other != nullptr;
    return all ? kOk : kNoMemory;
}

Status LoadSuperblock(CheckRun* run) {
    StorageContext* context = run->context;
    const Status status = ReadPage(context, context->superblock, kSuperblockNumber);
    context->logInFile = context->Super()->inFileLog != 0;
    return status;
}

Status Replay(CheckRun* run, LogUse use) {
    StorageContext* context = run->context;
    context->active = true;
    context->knownPages = kUnknownPages;
    const Superblock* super = context->Super();
    const bool chained = (super->flags & kFlagChainedLog) != 0 && super->logChainHead != 0;
    Status status = chained ? RecoverChained(context) : RecoverSequential(context, use);
    if (status == kOk) {
        context->Super()->logPending = 0;
        status = WriteSuperblock(context);
    }
    context->active = false;
    DestroyTransactions(context);
    DestroyCache(context);
    context->mapPagesKnown = context->freeCount = context->lastFree = 0;
    context->firstFree = kUnknownPages;
    return status;
}

// A pending log is replayed in memory first. What it makes of the container is what is checked;
// a repair then replays it in the file. A log that cannot be replayed is a finding of a check, and
// keeps a repair from changing anything.
Status ReplayLog(CheckRun* run) {
    StorageContext* context = run->context;
    context->swapBuffer = Allocate(1, context->pageSize);
    context->superblock = Allocate(1, context->pageSize);
    if (context->swapBuffer == nullptr || context->superblock == nullptr) return kNoMemory;
    Status status = LoadSuperblock(run);
    const Superblock* super = context->Super();
    if (status != kOk || super->kind != kSuperblockPage || super->logPending == 0) return status;
    run->hadLog = true;
    if (run->discardLog) return kOk;
    status = Replay(run, LogUse::Look);
    if (status == kOk ? run->repair : status == kCorrupt && !run->repair) {
        run->overlay->Drop();
        context->blocks.Forget();
        status = LoadSuperblock(run);
        if (status == kOk && run->repair) {
            context->file = run->overlay->File();
            status = Replay(run, LogUse::Replay);
            context->file = run->overlay;
            context->blocks.Forget();
        }
    }
    return status == kOk ? Measure(run) : status;
}

// First pass: the header of each page. The map decides which pages are read in a run that is not
// deep.
Status ReadPages(CheckRun* run) {
    StorageContext* context = run->context;
    run->besideWriter = run->lock.IsBesideWriter();
    for (uint32_t page = 0; page < run->pages && !run->cancelled; ++page) {
        const bool isMap = context->IsMapPage(page);
        if (!isMap) run->slots[page] = LoadU16(run->map, (page & (context->MapGroup() - 1)) * 2);
        if (isMap || page == kSuperblockNumber || run->deep || run->slots[page] != 0) {
            uint8_t* buffer = isMap ? run->map : run->header;
            const Status status = ReadForCheck(run, page, buffer);
            if (status != kOk) return status;
            std::memcpy(&run->digests[page], buffer, sizeof(PageDigest));
            if (!isMap && run->digests[page].kind == kHeaderPage)
                run->marks[page] = RecordMarks(buffer, context->pageSize);
        }
        Tell(run, kCheckRead, page + 1, run->pages);
    }
    return kOk;
}

// The numbers of page 1 that cannot be otherwise.
bool SuperblockIsRight(const CheckRun* run, const Superblock* super) {
    return super->kind == kSuperblockPage && super->pageNumber == kSuperblockNumber &&
           super->reserved8 == 0 && super->logPending == 0 && super->lastFileId >= run->maxId &&
           super->layoutA == 1 && super->layoutB == 76 && super->layoutC == kEntrySize &&
           super->layoutD == 0 && super->rootEntry.attributes == kAttrDirectory &&
           (super->maxPages == 0 || super->maxPages >= run->pages) &&
           (super->flags & kFlagCorrupted) == 0;
}

void MendSuperblock(const CheckRun* run, Superblock* super) {
    super->kind = kSuperblockPage;
    super->pageNumber = kSuperblockNumber;
    super->reserved8 = 0;
    if (super->logPending != 0) super->logChainHead = 0;
    super->logPending = 0;
    if (super->lastFileId < run->maxId) super->lastFileId = run->maxId;
    super->layoutA = 1;
    super->layoutB = 76;
    super->layoutC = kEntrySize;
    super->layoutD = 0;
    super->rootEntry.attributes = kAttrDirectory;
    super->flags &= ~kFlagCorrupted;
    if (super->maxPages < run->pages) super->maxPages = 0;
}

void CheckSuperblock(CheckRun* run) {
    if (SuperblockIsRight(run, run->context->Super())) return;
    TellBadLink(run, kSuperblockNumber);
    NoteChange(run, kSuperblockNumber);
    MendSuperblock(run, run->context->Super());
}

Status RunPasses(CheckRun* run) {
    const auto ended = [run](Status status) {
        return status == kOk && run->cancelled ? Status{kCancelled} : status;
    };
    Status status = ended(ReadPages(run));
    if (status == kOk) status = ended(CheckObjects(run));
    if (status == kOk) status = ended(FindLostPages(run));
    if (status == kOk) status = ended(CheckMap(run));
    if (status != kOk) return status;
    CheckSuperblock(run);
    if (run->trailing) TellBadLink(run, run->pages);
    if (run->cancelled) return kCancelled;
    return run->repair ? WriteRepair(run) : kOk;
}

Status CheckFile(CheckRun* run, const WChar* path) {
    StorageContext* context = run->context;
    context->path = CopyString(path);
    context->logPath = MakeLogPath(path);
    if (context->path == nullptr || context->logPath == nullptr) return kNoMemory;
    Status status = OpenForCheck(run, path);
    if (status == kOk) status = Measure(run);
    if (status == kOk) status = ReplayLog(run);
    if (status == kOk) status = AllocateRun(run);
    if (status == kOk) status = RunPasses(run);
    // What the log held is in no file any more once nothing asks for it.
    if (status == kOk && run->repair && run->discardLog && run->hadLog && !context->logInFile)
        platform::DeleteFileByPath(context->logPath);
    return status;
}

}  // namespace

void Tell(CheckRun* run, uint32_t code, uint32_t a, uint32_t b) {
    if (run->callback == nullptr) return;
    uint8_t cancel = 0;
    run->callback(run->userData, code, a, b, run->clean, &cancel);
    if (cancel != 0) run->cancelled = true;
}

void TellBadLink(CheckRun* run, uint32_t page) {
    ++run->findings;
    Tell(run, kFoundBadLink, page, 0);
}

void TellBadEntry(CheckRun* run, uint32_t page, const DirectoryEntry& entry) {
    ++run->findings;
    if (run->userData != nullptr) {
        WChar* name = static_cast<WChar*>(run->userData);
        for (uint32_t i = 0; i < kEntryNameUnits; ++i) name[i] = static_cast<WChar>(entry.name[i]);
        name[kEntryNameUnits] = 0;
    }
    Tell(run, kFoundBadEntry, page, 0);
}

void NoteChange(CheckRun* run, uint32_t page) {
    run->marks[page] |= kMarkChanged;
}

Status StorageCheckAndRepair(const WChar* path, const void*, uint32_t flags, const void*,
                             const void*, void* userData, CheckCallback callback) {
    if (path == nullptr) return kInvalid;
    CheckRun run;
    run.context = MakeContext();
    if (run.context == nullptr) return kNoMemory;
    run.repair = (flags & kCheckOnly) == 0;
    run.deep = (flags & kCheckDeep) != 0;
    run.discardLog = run.repair && (flags & kCheckDiscardLog) != 0;
    run.callerHoldsLock = (flags & kCheckLocked) != 0;
    run.callback = callback;
    run.userData = userData;
    const Status status = CheckFile(&run, path);
    CloseContainer(run.context, Closing::Fail);
    DestroyContext(run.context);
    return status;
}

}  // namespace storage
