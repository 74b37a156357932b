// Check and repair: reading the container, freeing what nothing refers to, and the page map.
#include <algorithm>

#include "storage/StorageApi.h"
#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/core/Recovery.h"
#include "storage/lifecycle/CheckRun.h"
#include "storage/lifecycle/ContextLife.h"
#include "storage/lifecycle/Locate.h"

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

Status OpenForCheck(CheckRun* run, const WChar* path) {
    const Status status = OpenContainerFile(run->context, path);
    run->writable = status == kOk && !run->context->readOnly;
    return status == kOk && run->repair && !run->writable ? kReadOnly : status;
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
        context->byteSwapped = false;  // as a probe leaves it, whatever page 1 says; meant so
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

// A pending log is replayed before a repair. One that cannot be leaves the container as it is.
Status ReplayLog(CheckRun* run) {
    StorageContext* context = run->context;
    context->swapBuffer = Allocate(1, context->pageSize);
    context->superblock = Allocate(1, context->pageSize);
    if (context->swapBuffer == nullptr || context->superblock == nullptr) return kNoMemory;
    Status status = ReadPage(context, context->superblock, kSuperblockNumber);
    if (status != kOk) return status;
    const Superblock* super = context->Super();
    context->logInFile = super->inFileLog != 0;
    if (!run->repair || super->kind != kSuperblockPage || super->logPending == 0) return kOk;
    context->active = true;
    context->knownPages = kUnknownPages;
    const bool chained = (super->flags & kFlagChainedLog) != 0 && super->logChainHead != 0;
    status = chained ? RecoverChained(context) : RecoverSequential(context);
    if (status == kOk) {
        context->Super()->logPending = 0;
        status = WriteSuperblock(context);
    }
    context->active = false;
    DestroyCache(context);
    return status == kOk ? Measure(run) : status;
}

// First pass: the header of each page. The map decides which pages are read in a run that is not
// deep.
Status ReadPages(CheckRun* run) {
    StorageContext* context = run->context;
    for (uint32_t page = 0; page < run->pages && !run->cancelled; ++page) {
        const bool isMap = context->IsMapPage(page);
        if (!isMap) run->slots[page] = LoadU16(run->map, (page & (context->MapGroup() - 1)) * 2);
        if (isMap || page == kSuperblockNumber || run->deep || run->slots[page] != 0) {
            uint8_t* buffer = isMap ? run->map : run->header;
            const Status status = ReadForCheck(run, page, buffer);
            if (status != kOk) return status;
            std::memcpy(&run->digests[page], buffer, sizeof(PageDigest));
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
           (super->maxPages == 0 || super->maxPages >= run->pages);
}

void MendSuperblock(const CheckRun* run, Superblock* super) {
    super->kind = kSuperblockPage;
    super->pageNumber = kSuperblockNumber;
    super->reserved8 = 0;
    super->logPending = 0;
    super->lastFileId = run->maxId;
    super->layoutA = 1;
    super->layoutB = 76;
    super->layoutC = kEntrySize;
    super->layoutD = 0;
    super->rootEntry.attributes = kAttrDirectory;
    super->transactionCounter = 1;
    if (super->maxPages < run->pages) super->maxPages = 0;
}

bool IsLost(const CheckRun* run, uint32_t page) {
    return (run->marks[page] & kMarkInUse) == 0 && !SlotIsFree(run->slots[page]) &&
           run->digests[page].kind != 0;
}

// Third pass: pages in use to the map that nothing refers to are freed, and what the walk changed
// only in memory is written.
Status FreeLostPages(CheckRun* run) {
    StorageContext* context = run->context;
    for (uint32_t page = 1; page < run->pages && !run->cancelled; ++page) {
        if (context->IsMapPage(page)) continue;
        if (IsLost(run, page)) {
            run->digests[page].kind = kFreePage;
            run->digests[page].pageNumber = page;
            NoteChange(run, page);
            Tell(run, kFoundLostPage, page, 0);
        } else if ((run->marks[page] & kMarkInUse) == 0) {
            run->marks[page] &= static_cast<uint8_t>(~kMarkChanged);
        }
        if (page != kSuperblockNumber && (run->marks[page] & kMarkChanged) != 0) {
            Status status = LoadChecked(run, page, run->other);
            if (status == kOk) status = StoreChecked(run, page, run->other);
            if (status != kOk) return status;
        }
        Tell(run, kCheckWrite, page, run->pages);
    }
    return kOk;
}

// The slot that a page is to have. A check gives no page free that has anything in it: what it
// found is not mended, and the references to such a page may still stand.
uint16_t RightSlot(const CheckRun* run, uint32_t page) {
    if (page == kSuperblockNumber) return kSuperblockPage;
    if ((run->marks[page] & kMarkInUse) != 0) return run->digests[page].kind;
    const bool keep = SlotIsFree(run->slots[page]) || run->digests[page].kind != 0;
    return keep ? run->slots[page] : uint16_t{kFreePage};
}

// True when the map page in run->other says that all of its group is free.
bool GroupIsFree(const CheckRun* run) {
    const uint32_t size = run->context->pageSize;
    return std::all_of(run->other + 2, run->other + size, [](uint8_t byte) { return byte == 0; });
}

// Fourth pass, in a check as well: each map page as the pages demand it, written where it differs.
Status WriteMap(CheckRun* run) {
    StorageContext* context = run->context;
    for (uint32_t first = 0; first < run->pages && !run->cancelled; first += context->MapGroup()) {
        Status status = ReadPage(context, run->map, first);
        if (status != kOk) return status;
        std::memset(run->other, 0, context->pageSize);
        Store(run->other, 0, static_cast<uint16_t>(context->pageShift));
        for (uint32_t k = 1; k < context->MapGroup() && first + k < run->pages; ++k)
            Store(run->other, 2 * k, RightSlot(run, first + k));
        // The end of a container with its log inside has no map pages yet.
        const bool none =
            context->logInFile && first != 0 && LoadU16(run->map, 0) == 0 && GroupIsFree(run);
        if (run->writable && !none && std::memcmp(run->map, run->other, context->pageSize) != 0)
            status = WritePage(context, run->other, first);
        if (status != kOk) return status;
        run->clean = 0;
        Tell(run, kCheckWrite, first, run->pages);
    }
    return kOk;
}

Status FinishSuperblock(CheckRun* run) {
    Superblock* super = run->context->Super();
    std::memcpy(run->other, super, run->context->pageSize);
    if (run->repair && !SuperblockIsRight(run, super)) MendSuperblock(run, super);
    // A check that found something does not call the container sound.
    if (run->repair || run->findings == 0) super->flags &= ~kFlagCorrupted;
    const bool changed = std::memcmp(run->other, super, run->context->pageSize) != 0 ||
                         (run->marks[kSuperblockNumber] & kMarkChanged) != 0;
    return changed ? WriteSuperblock(run->context) : kOk;
}

Status CutTail(CheckRun* run) {
    StorageContext* context = run->context;
    uint64_t size = 0;
    const platform::Error error = context->file->Size(&size);
    if (error != 0) return static_cast<Status>(error);
    const uint64_t pages = uint64_t{run->pages} + context->basePage;
    return size == pages << context->pageShift ? kOk
                                               : CutFile(context->file, pages, context->pageSize);
}

Status RunPasses(CheckRun* run) {
    const auto ended = [run](Status status) {
        return status == kOk && run->cancelled ? Status{kCancelled} : status;
    };
    Status status = ended(ReadPages(run));
    if (status == kOk) status = ended(CheckObjects(run));
    for (uint32_t page = 0; status == kOk && page < run->pages; ++page) {
        Tell(run, kCheckReferences, page, run->pages);
        status = ended(kOk);
    }
    if (status == kOk && run->repair) status = ended(FreeLostPages(run));
    if (status == kOk) status = ended(WriteMap(run));
    if (status != kOk || !run->writable) return status;
    status = CutTail(run);
    return status == kOk ? FinishSuperblock(run) : status;
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
    return status == kOk ? RunPasses(run) : status;
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
    run.callback = callback;
    run.userData = userData;
    const Status status = CheckFile(&run, path);
    CloseContainer(run.context, Closing::Fail);
    DestroyContext(run.context);
    return status;
}

}  // namespace storage
