// SPDX-License-Identifier: MIT
// Formats a new container: the map page, the superblock, and the root's HeaderPage.
#include "storage/core/Dates.h"
#include "storage/core/PageIo.h"
#include "storage/lifecycle/ContextLife.h"
#include "storage/lifecycle/Sharing.h"
#include "storage/namespace/Objects.h"

namespace storage {

namespace {

constexpr WChar kDefaultBanner[] = WTEXT("Tarn for Windows (c) Bracken Corporation");

Status SetPageSize(StorageContext* context, uint32_t pageSize) {
    for (uint32_t shift = kMinPageShift; shift <= kMaxPageShift; ++shift) {
        if (pageSize != 1u << shift) continue;
        context->pageShift = shift;
        context->pageSize = pageSize;
        context->payloadSize = pageSize - kPageHeaderSize;
        return kOk;
    }
    return kBadPageSize;
}

Status CreateFile(StorageContext* context, bool overwrite) {
    platform::SetLastError(platform::kErrorSuccess);
    context->file = OpenPageFile(
        context->path, ResourceType::FileCreate,
        overwrite ? platform::Disposition::CreateAlways : platform::Disposition::CreateNew);
    return context->file != nullptr ? kOk : OpenFailure();
}

void FillMapPage(const StorageContext* context, uint8_t* page) {
    Store<uint16_t>(page, 0, static_cast<uint16_t>(context->pageShift));
    Store<uint16_t>(page, 2 * kSuperblockNumber, kSuperblockPage);
    Store<uint16_t>(page, 2 * kRootHeaderNumber, kHeaderPage);
}

void FillSuperblock(Superblock* super, const WChar* banner) {
    super->kind = kSuperblockPage;
    super->pageNumber = kSuperblockNumber;
    super->formatA = 13;
    super->formatB = 10;
    if (banner == nullptr || banner[0] == 0) banner = kDefaultBanner;
    for (uint32_t i = 0; i < kBannerUnits && banner[i] != 0; ++i) super->banner[i] = banner[i];
    super->engineVersion = super->engineVersionMin = 0x3000000;
    super->lastFileId = kRootFileId;
    super->transactionCounter = 1;
    super->layoutA = 1;
    super->layoutB = 76;
    super->layoutC = kEntrySize;
    super->rootEntry.fileId = kRootFileId;
    super->rootEntry.headerPage = kRootHeaderNumber;
    super->rootEntry.attributes = kAttrDirectory;
    super->flags = kFlagChainedLog;
    super->reservedSize = 6553;
}

void FillRootHeader(uint8_t* page) {
    HeaderPageHeader* header = HeaderPageOf(page);
    header->kind = kHeaderPage;
    header->pageNumber = kRootHeaderNumber;
    header->prevPage = kSuperblockNumber;
    header->fileId = kRootFileId;
    header->endOffset = kFreshRecordsEnd;
    uint8_t* info = page + kRecordsStart;
    Store<uint16_t>(info, record::kSize, kFileInfoSize);
    Store<double>(info, record::kCreated, CurrentDate());
    Store<double>(info, record::kModified, CurrentDate());
    Store<double>(info, record::kAccessed, CurrentDate());
}

Status WritePagesOfNew(StorageContext* context) {
    const uint32_t size = context->pageSize;
    uint8_t* page = static_cast<uint8_t*>(platform::HeapAllocateZeroed(size));
    if (page == nullptr) return kNoMemory;
    FillMapPage(context, page);
    Status status = WritePage(context, page, 0);
    if (status == kOk) status = WriteSuperblock(context);
    std::memset(page, 0, size);
    FillRootHeader(page);
    if (status == kOk) status = WritePage(context, page, kRootHeaderNumber);
    platform::HeapRelease(page);
    return status;
}

Status FormatSteps(StorageContext* context, bool overwrite, uint32_t pageSize,
                   const WChar* banner) {
    Status status = SetPageSize(context, pageSize);
    if (status != kOk) return status;
    context->superblock = static_cast<uint8_t*>(platform::HeapAllocateZeroed(pageSize));
    context->swapBuffer = static_cast<uint8_t*>(platform::HeapAllocate(pageSize));
    if (context->superblock == nullptr || context->swapBuffer == nullptr) return kNoMemory;
    status = CreateFile(context, overwrite);
    if (status != kOk) return status;
    status = AttachLock(context);
    if (status != kOk) return status;
    FillSuperblock(context->Super(), banner);
    context->seenCounter = context->Super()->transactionCounter;
    status = WritePagesOfNew(context);
    if (status != kOk) return status;
    if (!context->freeCounts.Add(0)) return kNoMemory;
    context->mapPagesKnown = 1;
    context->knownPages = context->totalPages = 3;
    context->active = true;
    return CreateRootObject(context);
}

}  // namespace

Status FormatContainer(StorageContext* context, const WChar* path, const WChar* logPath,
                       bool overwrite, uint32_t pageSize, const WChar* banner) {
    context->path = CopyRealPath(path);
    context->logPath = CopyRealPath(logPath);
    const Status status = context->path == nullptr || context->logPath == nullptr
                              ? kNoMemory
                              : FormatSteps(context, overwrite, pageSize, banner);
    if (status != kOk) CloseContainer(context, Closing::Fail);
    return status;
}

}  // namespace storage
