// SPDX-License-Identifier: MIT
#include "storage/core/Recovery.h"

#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/core/PageMap.h"

namespace storage {

namespace {

constexpr uint16_t kListOfFrees = 0xFFFE;
constexpr uint16_t kListOfRewrites = 0xFFFD;
constexpr uint32_t kFirstListed = 12;  // offset of the page numbers in a list page
constexpr uint32_t kBuffers = 3;

// A log is gone through more than once, so that one that makes no sense changes nothing, and one
// that is stopped anywhere is there to be replayed again.
enum class Pass {
    Verify,  // reads all of it and writes nothing
    Apply,   // every page where it belongs; the log stays as it is
    Clean,   // the log is switched off: what it was made of is given up
};

// Pages pass through recovery as they lie in the file: an image is already in the container's
// byte order. Only the words that steer the replay are read, through here.
struct RawOrder {
    bool swapped;

    uint16_t U16(const uint8_t* page, uint32_t offset) const {
        const uint16_t value = LoadU16(page, offset);
        return swapped ? Swap16(value) : value;
    }
    uint32_t U32(const uint8_t* page, uint32_t offset) const {
        const uint32_t value = LoadU32(page, offset);
        return swapped ? Swap32(value) : value;
    }
    void Put16(uint8_t* page, uint32_t offset, uint16_t value) const {
        Store<uint16_t>(page, offset, swapped ? Swap16(value) : value);
    }
    void Put32(uint8_t* page, uint32_t offset, uint32_t value) const {
        Store<uint32_t>(page, offset, swapped ? Swap32(value) : value);
    }
};

// What a replay works with.
struct Replay {
    StorageContext* context;
    RawOrder order;
    uint8_t* first = nullptr;   // commit list, or first-level page
    uint8_t* second = nullptr;  // log page, or second-level page
    uint8_t* third = nullptr;   // page of the container
    uint32_t committed = 0;     // slots of the commit list that count
    Pass pass = Pass::Verify;

    explicit Replay(StorageContext* owner) : context(owner), order{owner->byteSwapped} {
        first = static_cast<uint8_t*>(platform::HeapAllocate(size_t{kBuffers} * owner->pageSize));
        if (first == nullptr) return;
        second = first + owner->pageSize;
        third = second + owner->pageSize;
    }
    ~Replay() { platform::HeapRelease(first); }
    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    Status ReadRaw(uint8_t* buffer, uint32_t page) const {
        if (page >= context->totalPages) return Corrupt(context);
        const uint64_t address = uint64_t{context->basePage} + page;
        return ReadPageRaw(context->file, buffer, context->pageSize, address, context->pageSize);
    }
    Status WriteRaw(const uint8_t* buffer, uint32_t page) const {
        if (page >= context->totalPages) return Corrupt(context);
        if (pass == Pass::Verify) return kOk;
        const uint64_t address = uint64_t{context->basePage} + page;
        return WritePageRaw(context, context->file, buffer, context->pageSize, address,
                            context->pageSize);
    }
    Status WriteZeroed(uint8_t* buffer, uint32_t page) const {
        std::memset(buffer, 0, context->pageSize);
        order.Put32(buffer, 4, page);
        return WriteRaw(buffer, page);
    }
    // Kinds go into the map of pages that exist; map pages have no slot of their own.
    Status EnterKind(uint32_t page, uint16_t kind) const {
        if (page == 0 || page >= context->totalPages || context->IsMapPage(page))
            return Corrupt(context);
        return pass == Pass::Verify ? kOk : SetPageKind(context, page, kind, false);
    }
};

bool IsCommitted(const Replay& replay, uint32_t id) {
    if (id == 0) return false;
    for (uint32_t i = 0; i < replay.committed; ++i)
        if (replay.order.U32(replay.first, 4 + 4 * i) == id) return true;
    return false;
}

Status ReadCommitList(Replay* replay) {
    const Status status = ReadLogPage(replay->context, replay->first, 0);
    if (status != kOk) return status;
    const uint32_t slots = (replay->context->pageSize - 4) / 4;
    for (uint32_t i = 0; i < slots; ++i)
        if (LoadU32(replay->first, 4 + 4 * i) != 0) replay->committed = i + 1;
    return kOk;
}

Status ReplayList(const Replay& replay, uint16_t marker) {
    for (uint32_t at = kFirstListed; at + 4 <= replay.context->pageSize; at += 4) {
        const uint32_t page = replay.order.U32(replay.second, at);
        if (page == 0) break;
        Status status = kOk;
        if (marker == kListOfFrees) {
            status = replay.EnterKind(page, kFreePage);
            if (status == kOk) status = replay.WriteZeroed(replay.third, page);
        } else {
            status = replay.ReadRaw(replay.third, page);
            if (status == kOk) status = replay.EnterKind(page, replay.order.U16(replay.third, 0));
            Store<uint32_t>(replay.third, 8, 0);
            if (status == kOk) status = replay.WriteRaw(replay.third, page);
        }
        if (status != kOk) return status;
    }
    return kOk;
}

// A superblock that the log brought takes the place of the one read before.
Status TakeSuperblock(const Replay& replay, uint32_t target, uint16_t kind) {
    if (target != kSuperblockNumber || kind != kSuperblockPage) return kOk;
    return ReadPage(replay.context, replay.context->superblock, kSuperblockNumber);
}

Status ReplayPage(const Replay& replay, uint32_t target) {
    const uint16_t kind = replay.order.U16(replay.second, 0);
    if (kind == kListOfFrees || kind == kListOfRewrites) return ReplayList(replay, kind);
    Store<uint32_t>(replay.second, 8, 0);
    Status status = replay.EnterKind(target, kind);
    if (status == kOk) status = replay.WriteRaw(replay.second, target);
    if (status == kOk) status = TakeSuperblock(replay, target, kind);
    return status;
}

// *count is the number of pages of the log, its first one included.
Status ReplayPages(Replay* replay, uint32_t pages, uint32_t* count) {
    StorageContext* context = replay->context;
    uint32_t i = 1;
    Status status = kOk;
    for (; i < pages && status == kOk; ++i) {
        status = ReadLogPage(context, replay->second, i);
        if (status != kOk) return status;
        const uint32_t target = replay->order.U32(replay->second, 4);
        const uint32_t ownPlace = context->totalPages - i - 1;
        if (target == 0 || (context->logInFile && target == ownPlace)) break;
        status = ScanPageMap(context, false, target);
        if (status == kOk && IsCommitted(*replay, replay->order.U32(replay->second, 8)))
            status = ReplayPage(*replay, target);
    }
    *count = i;
    return status;
}

// The companion log for reading and writing; a missing one is made, and is empty. One that is
// there and cannot be had is left as it is.
Status OpenCompanionLog(StorageContext* context, LogUse use) {
    if (context->logPath == nullptr) return kOk;
    const bool replay = use == LogUse::Replay;
    const ResourceType type = replay ? ResourceType::FileCreate : ResourceType::FileReadOnly;
    platform::SetLastError(platform::kErrorSuccess);
    context->logFile = OpenPageFile(context->logPath, type, platform::Disposition::OpenExisting);
    if (context->logFile != nullptr) return kOk;
    const platform::Error error = platform::LastError();
    if (error != platform::kErrorFileNotFound && error != platform::kErrorPathNotFound)
        return OpenFailure();
    if (!replay) return kOk;
    context->logFile = OpenPageFile(context->logPath, type, platform::Disposition::CreateAlways);
    return context->logFile != nullptr ? kOk : OpenFailure();
}

Status LogPageCount(StorageContext* context, uint32_t* pages) {
    *pages = context->totalPages;
    if (context->logInFile) return kOk;
    *pages = 0;
    if (context->logFile == nullptr) return kOk;
    uint64_t size = 0;
    const platform::Error error = context->logFile->Size(&size);
    const uint64_t count = size >> context->pageShift;
    *pages = count > kUnknownPages ? kUnknownPages : static_cast<uint32_t>(count);
    return static_cast<Status>(error);
}

// Empties the log, so that it will not be replayed again. In the container's last pages the commit
// list goes first: without it the rest is nothing.
Status ClearLog(StorageContext* context, Replay* replay, uint32_t count) {
    if (!context->logInFile) return CutFile(context->logFile, 0, context->pageSize);
    std::memset(replay->second, 0, context->pageSize);
    Status status = kOk;
    for (uint32_t i = 0; i < count && status == kOk; ++i)
        status = replay->WriteRaw(replay->second, context->totalPages - i - 1);
    return status;
}

Status ReplaySequential(StorageContext* context, LogUse use) {
    Replay replay(context);
    if (replay.first == nullptr) return kNoMemory;
    uint32_t pages = 0, count = 0;
    Status status = LogPageCount(context, &pages);
    if (status != kOk || pages == 0) return status;
    status = ReadCommitList(&replay);
    if (status == kOk) status = ReplayPages(&replay, pages, &count);
    replay.pass = Pass::Apply;
    if (status == kOk) status = ReplayPages(&replay, pages, &count);
    if (status == kOk) status = FlushMapPages(context);
    if (status == kOk && (use == LogUse::Replay || context->logInFile))
        status = ClearLog(context, &replay, count);
    return status;
}

// Pages came and went behind the counts' back: they are made anew when they are needed.
void ForgetCounts(StorageContext* context) {
    context->knownPages = kUnknownPages;
    context->mapPagesKnown = context->freeCount = context->lastFree = 0;
    context->firstFree = kUnknownPages;
    context->freeCounts.Clear();
}

}  // namespace

Status RecoverSequential(StorageContext* context, LogUse use) {
    if (!context->logInFile) {
        const Status status = OpenCompanionLog(context, use);
        if (status != kOk || context->logPath == nullptr) return status;
    }
    const Status status = ReplaySequential(context, use);
    if (status == kOk) ForgetCounts(context);
    if (context->logFile != nullptr) {
        delete context->logFile;
        context->logFile = nullptr;
        if (status == kOk && use == LogUse::Replay) platform::DeleteFileByPath(context->logPath);
    }
    return status;
}

namespace {

// Bounds a walk by the pages there are: a log has no page twice, and lists few more.
struct WalkBound {
    StorageContext* context;
    uint64_t left;

    Status Step() {
        if (left == 0) return Corrupt(context);
        --left;
        return kOk;
    }
};

// One page that the log lists. Until the log is switched off the page keeps its pending kind, and
// a copy stays beside what was made of it, so that a second replay finds all as the first did.
Status ReplayLoggedPage(const Replay& replay, uint32_t page) {
    Status status = replay.ReadRaw(replay.third, page);
    if (status != kOk) return status;
    const uint16_t kind = replay.order.U16(replay.third, 0);
    const uint16_t pending = replay.order.U16(replay.third, 2);
    const uint32_t place = replay.order.U32(replay.third, 4);
    const bool inPlace = kind == kFreePage || (kind == pending && place == page);
    const bool copy = kind == pending && place != page;
    const bool clean = replay.pass == Pass::Clean;
    if (!clean || !copy) status = replay.EnterKind(place, pending);
    if (status == kOk && (clean ? inPlace : inPlace || copy)) {
        replay.order.Put16(replay.third, 0, pending);
        if (clean || copy) Store<uint16_t>(replay.third, 2, 0);
        status = replay.WriteRaw(replay.third, place);
    }
    if (status == kOk && clean && (pending == kFreePage || copy))
        status = replay.WriteZeroed(replay.third, page);
    return status;
}

// The page of the log is done with; *next is the one behind it.
Status EndLogPage(const Replay& replay, uint8_t* buffer, uint32_t nextOffset, uint32_t page,
                  uint32_t* next) {
    *next = replay.order.U32(buffer, nextOffset);
    if (replay.pass == Pass::Apply) return kOk;
    const Status status = replay.EnterKind(page, kFreePage);
    return status != kOk ? status : replay.WriteZeroed(buffer, page);
}

Status ReplaySecondLevel(const Replay& replay, uint32_t head, WalkBound* bound, WalkBound* listed) {
    for (uint32_t page = head; page != 0;) {
        Status status = bound->Step();
        if (status == kOk) status = replay.ReadRaw(replay.second, page);
        for (uint32_t at = 20; status == kOk && at + 4 <= replay.context->pageSize; at += 4) {
            const uint32_t logged = replay.order.U32(replay.second, at);
            if (logged == 0) continue;
            status = listed->Step();
            if (status == kOk) status = ReplayLoggedPage(replay, logged);
        }
        if (status == kOk) status = EndLogPage(replay, replay.second, 16, page, &page);
        if (status != kOk) return status;
    }
    return kOk;
}

Status ReplayFirstLevel(const Replay& replay, uint32_t head) {
    WalkBound bound{replay.context, replay.context->totalPages};
    WalkBound listed{replay.context, uint64_t{replay.context->totalPages} * 2};
    const uint32_t heads = (replay.context->pageSize - 12) / 8;
    for (uint32_t page = head; page != 0;) {
        Status status = bound.Step();
        if (status == kOk) status = replay.ReadRaw(replay.first, page);
        for (uint32_t i = 0; status == kOk && i < heads; ++i) {
            const uint32_t second = replay.order.U32(replay.first, 16 + 8 * i);
            if (second != 0) status = ReplaySecondLevel(replay, second, &bound, &listed);
        }
        if (status == kOk) status = EndLogPage(replay, replay.first, 8, page, &page);
        if (status != kOk) return status;
    }
    return kOk;
}

Status ReplayChained(StorageContext* context) {
    Replay replay(context);
    if (replay.first == nullptr) return kNoMemory;
    const uint32_t head = context->Super()->logChainHead;
    Status status = ReplayFirstLevel(replay, head);
    replay.pass = Pass::Apply;
    if (status == kOk) status = ReplayFirstLevel(replay, head);
    if (status == kOk) status = FlushMapPages(context);
    if (status != kOk) return status;
    context->Super()->logPending = 0;
    context->Super()->logChainHead = 0;
    status = WriteSuperblock(context);
    replay.pass = Pass::Clean;
    if (status == kOk) status = ReplayFirstLevel(replay, head);
    return status == kOk ? FlushMapPages(context) : status;
}

}  // namespace

Status RecoverChained(StorageContext* context) {
    Status status = ScanPageMap(context, true, 0);
    if (status == kOk) status = ReplayChained(context);
    if (status == kOk) ForgetCounts(context);
    context->Super()->logChainHead = 0;
    return status;
}

}  // namespace storage
