// SPDX-License-Identifier: MIT
// Opens a container: found, measured, recovered, and its root made ready.
#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/core/Recovery.h"
#include "storage/core/SwitchMark.h"
#include "storage/lifecycle/ContextLife.h"
#include "storage/lifecycle/Locate.h"
#include "storage/lifecycle/Sharing.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Records.h"

namespace storage {

namespace {

Status CountPages(StorageContext* context, uint64_t size) ZRFS_REQUIRES(context->containerLock) {
    const uint64_t pages = size >> context->pageShift;
    // The map page, the superblock and the root's HeaderPage are the least there can be.
    if (pages >= kUnknownPages || pages < uint64_t{context->basePage} + 3) return kNotContainer;
    context->totalPages = static_cast<uint32_t>(pages - context->basePage);
    return kOk;
}

uint64_t FileSize(StorageContext* context) ZRFS_REQUIRES(context->containerLock) {
    uint64_t size = 0;
    return context->file->Size(&size) == 0 ? size : 0;
}

// What came along behind page 1 is mostly wanted next. It counts as read: who takes it from memory
// must look whether the file moved since.
void OfferHead(StorageContext* context, const ContainerPlace& place)
    ZRFS_REQUIRES(context->containerLock) {
    const uint32_t begin = 2 * context->pageSize;
    if (begin >= sizeof place.head) return;
    ++context->pageReads;
    context->blocks.Offer(place.base * kLocateBlock + begin, place.head + begin,
                          static_cast<uint32_t>(sizeof place.head) - begin);
}

Status MeasureFile(StorageContext* context, ContainerPlace* found)
    ZRFS_REQUIRES(context->containerLock) {
    const uint64_t size = FileSize(context);
    ContainerPlace& place = *found;
    const Status status = LocateContainer(context->file, size, &place);
    if (status != kOk) return status;
    if (place.pageShift < kMinPageShift || place.pageShift > kMaxPageShift) return kNotContainer;
    context->byteSwapped = place.byteSwapped;
    context->pageShift = place.pageShift;
    context->pageSize = 1u << place.pageShift;
    context->payloadSize = context->pageSize - kPageHeaderSize;
    const uint64_t base = place.base * kLocateBlock >> place.pageShift;
    if (base >= kUnknownPages) return kNotContainer;
    context->basePage = static_cast<uint32_t>(base);
    OfferHead(context, place);
    return CountPages(context, size);
}

Status ReadSuperblock(StorageContext* context, const ContainerPlace& place)
    ZRFS_REQUIRES(context->containerLock) {
    if (place.byteSwapped || 2 * context->pageSize > sizeof place.head)
        return ReadPage(context, context->superblock, kSuperblockNumber);
    std::memcpy(context->superblock, place.head + context->pageSize, context->pageSize);
    return kOk;
}

Status LoadSuperblock(StorageContext* context, const ContainerPlace& place)
    ZRFS_REQUIRES(context->containerLock) {
    context->superblock = static_cast<uint8_t*>(platform::HeapAllocate(context->pageSize));
    context->swapBuffer = static_cast<uint8_t*>(platform::HeapAllocate(context->pageSize));
    if (context->superblock == nullptr || context->swapBuffer == nullptr) return kNoMemory;
    const Status status = ReadSuperblock(context, place);
    if (status != kOk) return status;
    // What is no superblock cannot be marked either.
    return context->Super()->kind == kSuperblockPage ? kOk : kCorrupt;
}

// What page 1 tells of the pages last written: who has the lock for writing looks for himself, all
// others believe only what they find so.
Status ReadSwitchList(StorageContext* context, bool locked) ZRFS_REQUIRES(context->containerLock) {
    SwitchList list;
    const bool valid = GetSwitchList(context, &list);
    context->unsettled = !valid || list.count != 0;
    context->listed = list;
    if (locked && !context->readOnly) return kOk;
    context->awaited = list;
    return valid || !context->file->IsMarkedElsewhere() ? kOk : kSharing;
}

// Without the lock the log stays, and so it does where it cannot be cleared.
Status ReplayPendingLog(StorageContext* context, bool locked)
    ZRFS_REQUIRES(context->containerLock) {
    if (context->Super()->logPending == 0 || context->readOnly || !locked) return kOk;
    const bool chained =
        (context->Super()->flags & kFlagChainedLog) != 0 && context->Super()->logChainHead != 0;
    const Status status = chained ? RecoverChained(context) : RecoverSequential(context);
    if (status != kOk) return status;
    context->Super()->logPending = 0;
    context->seenCounter = ++context->Super()->transactionCounter;
    // At once: the log is gone, and must not be looked for again once its pages have new owners.
    return WriteSuperblock(context);
}

// Walks the root's records up to the one that switches searches off. Every record on the way is
// checked.
Status ReadFindSettings(StorageContext* context, StorageTransaction* transaction)
    ZRFS_REQUIRES(context->containerLock) {
    const FileObject* root = context->objects->root;
    uint32_t left = context->totalPages;
    for (uint32_t number = root->headerPage;;) {
        if (left-- == 0) return Corrupt(context);
        CachePage* page = nullptr;
        Status status =
            GetPageChecked(context, number, kHeaderPage, &page, root->fileId, transaction);
        if (status != kOk) return status;
        bool found = false;
        for (uint32_t offset = 0; !found && NextRecord(context, page, &offset, &status);) {
            const uint8_t* record = page->buffer + offset;
            found = LoadU16(record, record::kType) == kFindSettingsRecord &&
                    LoadU16(record, record::kSize) >= record::kPayload + 4;
            if (found) context->searchEnabled = LoadU32(record, record::kPayload) == 0;
        }
        number = HeaderOf(page->buffer)->nextPage;
        ReleasePage(context, page);
        if (status != kOk || found || number == 0) return status;
    }
}

Status OpenRoot(StorageContext* context) ZRFS_REQUIRES(context->containerLock) {
    Status status = CreateRootObject(context);
    if (status != kOk) return status;
    StorageTransaction* transaction = nullptr;
    status = BeginTransaction(context, &transaction, TransactionMode::Read);
    if (status != kOk) return status;
    status = ReadFindSettings(context, transaction);
    EndReadTransaction(context, transaction);
    return status;
}

}  // namespace

Status LoadContainer(StorageContext* context, bool locked) {
    ContainerPlace place;
    Status status = MeasureFile(context, &place);
    if (status == kOk) status = LoadSuperblock(context, place);
    // Once more: the file may have grown to what page 1 tells of after it was measured first.
    if (status == kOk) status = CountPages(context, FileSize(context));
    if (status != kOk) return status;
    context->active = true;
    context->seenCounter = context->Super()->transactionCounter;
    status = ReadSwitchList(context, locked);
    if (status != kOk) return status;
    context->knownPages = kUnknownPages;
    context->logInFile = context->Super()->inFileLog != 0;
    status = ReplayPendingLog(context, locked);
    return status == kOk ? OpenRoot(context) : status;
}

Status OpenContainer(StorageContext* context, const WChar* path, const WChar* logPath) {
    // Where the file is, not what it was called: the program may change its folder.
    context->path = CopyRealPath(path);
    if (logPath != nullptr) {
        const bool isReal =
            context->path != nullptr && platform::WStringView(path) == context->path;
        context->logPath = isReal ? CopyString(logPath) : CopyRealPath(logPath);
    }
    Status status = context->path == nullptr || (logPath != nullptr && context->logPath == nullptr)
                        ? kNoMemory
                        : OpenContainerFile(context, context->path);
    if (status == kOk) status = AttachLock(context);
    if (status == kOk) status = LoadShared(context);
    if (status != kOk) CloseContainer(context, Closing::Fail);
    return status;
}

}  // namespace storage
