// SPDX-License-Identifier: MIT
#include "storage/namespace/Stream.h"

#include <algorithm>

#include "storage/core/Dates.h"
#include "storage/core/PageIo.h"
#include "storage/namespace/BlockCode.h"
#include "storage/namespace/Blocks.h"
#include "storage/namespace/StreamInfo.h"

namespace storage {
namespace {

// Where the values of a BlockSettingsRecord stand.
constexpr uint32_t kSettingsMethod = 12;         // u32
constexpr uint32_t kSettingsLevel = 16;          // u32
constexpr uint32_t kSettingsPagesPerBlock = 20;  // u16
constexpr uint32_t kSettingsSize = 22;

// How far a stream in pages reaches: to the end of the block of its last page, or to its size
// when that lies in the same block.
uint64_t EndOfPages(const FileObject* object, uint32_t lastPage) {
    const uint64_t block = BlockBytes(object);
    const uint64_t end = (lastPage / object->pagesPerBlock + 1) * block;
    const uint64_t lastByte = object->size % block == 0 ? object->size - 1 : object->size;
    return (end - 1) / block == lastByte / block ? object->size : end;
}

Status EndOfInline(FileObject* object, uint64_t* end, StorageTransaction* transaction) {
    *end = 0;
    StorageContext* context = object->context;
    PinnedRecord record(context);
    Status status = FindRecord(object, object->streamType, &record, false, transaction);
    if (status != kOk || record.page == nullptr) return status;
    uint32_t length = record.PayloadSize();
    if (record.Info() != 0)
        status = DecodedLength(context, object->readMethod, record.Payload(), length, &length);
    if (status == kOk && length > BlockBytes(object)) status = kBadBlock;
    *end = length;
    return status;
}

// Discards every block in use; what they hold is not to be stored any more.
void DiscardBlocks(FileObject* object) {
    for (FileHandle* handle : object->handles) handle->block = nullptr;
    while (!object->blocks.Empty()) DiscardBlock(object->blocks.Last());
}

// Gives up a block whose bytes are about to go.
void ReleaseUnstored(FileBlock** block) {
    if (*block == nullptr) return;
    (*block)->flags &= ~static_cast<uint32_t>(kBlockDirty);
    ReleaseBlock(block, nullptr);
}

void LowerHandles(FileObject* object, uint64_t end) {
    for (FileHandle* handle : object->handles) {
        handle->position = std::min(handle->position, end);
        if (handle->block != nullptr && handle->block->start > end) ReleaseUnstored(&handle->block);
    }
}

// `end` is above 0 and below the stream end, so that its block exists.
Status Shrink(FileObject* object, uint64_t end, FileBlock** block,
              StorageTransaction* transaction) {
    LowerHandles(object, end);
    if (*block != nullptr && (*block)->start > end) ReleaseUnstored(block);
    FileBlock* last = nullptr;
    Status status = OpenBlock(object, end - end % BlockBytes(object), &last, transaction);
    if (status != kOk) return status;
    const uint64_t next = last->start / object->context->payloadSize + object->pagesPerBlock;
    if (next < object->pageList.Count())
        status = RemoveStreamPages(object, static_cast<uint32_t>(next), object->pageList.Count(),
                                   transaction);
    SetDataLength(last, static_cast<uint32_t>(end - last->start));
    const Status stored = StoreBlock(last, transaction);
    if (status == kOk) status = stored;
    const Status released = ReleaseBlock(&last, transaction);
    return status != kOk ? status : released;
}

// Fills the last block with zeros, up to `end` or to its own end; *next is where the block after
// it starts.
Status FillLastBlock(FileObject* object, uint64_t end, uint64_t* next,
                     StorageTransaction* transaction) {
    const uint64_t bytes = BlockBytes(object), old = object->streamEnd;
    const uint64_t position = old != 0 && old % bytes == 0 ? old - 1 : old;
    FileBlock* last = nullptr;
    const Status status = OpenBlock(object, position - position % bytes, &last, transaction);
    if (status != kOk) return status;
    *next = last->start + bytes;
    const uint32_t length = static_cast<uint32_t>(std::min(end - last->start, bytes));
    if (length > last->dataLength) SetDataLength(last, length);
    if (end >= *next && (last->flags & kBlockInline) != 0)
        last->flags |= kBlockDirty | kBlockToPages;
    const Status stored = StoreBlock(last, transaction);
    const Status released = ReleaseBlock(&last, transaction);
    return stored != kOk ? stored : released;
}

// Pages are taken in rising order, so that those of one commit lie side by side on disk.
Status Grow(FileObject* object, uint64_t end, StorageTransaction* transaction) {
    const uint32_t payload = object->context->payloadSize;
    if (end / payload + object->pagesPerBlock >= kUnknownPages) return kFull;
    uint64_t next = 0;
    Status status = FillLastBlock(object, end, &next, transaction);
    if (status != kOk || end < next) return status;
    // The block that holds `end` has a page even when no byte of it is used yet.
    const uint64_t inLastBlock = end % BlockBytes(object);
    const uint64_t pages = std::max<uint64_t>(1, (inLastBlock + payload - 1) / payload);
    const uint64_t behind = (end - inLastBlock) / payload + pages;
    for (uint64_t at = next / payload; status == kOk && at < behind; ++at) {
        const uint32_t ordinal = static_cast<uint32_t>(at);
        if (ordinal < object->pageList.Count() && object->pageList[ordinal] != 0) continue;
        status = InsertStreamPage(object, ordinal, transaction);
    }
    return status;
}

}  // namespace

Status FindFileInfo(FileObject* object, PinnedRecord* record, StorageTransaction* transaction) {
    const Status status = FindRecord(object, kFileInfoRecord, record, true, transaction);
    if (status != kOk) return status;
    return record->Size() < kFileInfoSize ? Corrupt(object->context) : kOk;
}

Status WriteSize(FileObject* object, uint64_t size, bool touch, StorageTransaction* transaction) {
    PinnedRecord info(object->context);
    Status status = FindFileInfo(object, &info, transaction);
    if (status == kOk) status = MarkPageChanged(object->context, info.page);
    if (status != kOk) return status;
    if (touch) {
        const double now = CurrentDate();
        Store(info.Bytes(), record::kModified, now);
        Store(info.Bytes(), record::kAccessed, now);
    }
    if (size == object->size) return kOk;
    Store(info.Bytes(), record::kFileSize, size);
    object->size = size;
    return kOk;
}

Status ReadSize(FileObject* object, uint64_t* size, StorageTransaction* transaction) {
    if (object->size == kUnknownSize) {
        StorageContext* context = object->context;
        PinnedRecord info(context);
        const Status status = FindRecord(object, kFileInfoRecord, &info, false, transaction);
        if (status != kOk) return status;
        if (info.page != nullptr && info.Size() < kFileInfoSize) return Corrupt(context);
        object->size = info.page != nullptr ? LoadU64(info.Bytes(), record::kFileSize) : 0;
    }
    *size = object->size;
    return kOk;
}

Status ComputeStreamEnd(FileObject* object, StorageTransaction* transaction) {
    if (object->streamEnd != kUnknownSize) return kOk;
    uint64_t end = 0;
    Status status = ReadSize(object, &end, transaction);
    if (status == kOk) status = LoadBlockList(object, transaction);
    if (status != kOk) return status;
    uint32_t pages = object->pageList.Count();
    while (pages > 0 && object->pageList[pages - 1] == 0) --pages;
    if (pages > 0)
        end = EndOfPages(object, pages - 1);
    else
        status = EndOfInline(object, &end, transaction);
    if (status == kOk) object->streamEnd = end;
    return status;
}

Status SetStreamEnd(FileObject* object, uint64_t end, FileBlock** block,
                    StorageTransaction* transaction) {
    Status status = ComputeStreamEnd(object, transaction);
    if (status != kOk) return status;
    const uint64_t old = object->streamEnd;
    const bool atBlockEnd = old != 0 && old % BlockBytes(object) == 0;
    if (end == old && !atBlockEnd) return kOk;
    bool freed = false;
    if (end == 0) {
        ReleaseUnstored(block);
        status = FreeStream(object, &freed, transaction);
    } else {
        status =
            end < old ? Shrink(object, end, block, transaction) : Grow(object, end, transaction);
    }
    if (status != kOk) {
        object->streamEnd = kUnknownSize;  // to be found again from what is stored
        return status;
    }
    // One more at the end of a page tells that the page behind it exists.
    const bool atPageEnd = end != 0 && end % object->context->payloadSize == 0;
    object->streamEnd = end + (atPageEnd ? 1 : 0);
    if (end > object->size || freed) return WriteSize(object, end, true, transaction);
    return kOk;
}

Status SetFileSize(FileObject* object, uint64_t size, StorageTransaction* transaction) {
    uint64_t old = 0;
    Status status = ReadSize(object, &old, transaction);
    if (status == kOk && size < old) {
        status = ComputeStreamEnd(object, transaction);
        FileBlock* block = nullptr;
        if (status == kOk && size < object->streamEnd)
            status = SetStreamEnd(object, size, &block, transaction);
        const Status released = ReleaseBlock(&block, transaction);
        if (status == kOk) status = released;
    }
    if (status == kOk) status = WriteSize(object, size, false, transaction);
    return status;
}

Status FreeStream(FileObject* object, bool* freed, StorageTransaction* transaction) {
    StorageContext* context = object->context;
    *freed = false;
    PinnedRecord record(context);
    Status status = FindRecord(object, object->streamType, &record, false, transaction);
    if (status != kOk || record.page == nullptr) return status;
    record.Release();
    DiscardBlocks(object);
    object->streamEnd = kUnknownSize;
    status = FreeStreamPages(object, transaction);
    if (status == kOk) status = FindRecord(object, object->streamType, &record, true, transaction);
    if (status == kOk) status = MarkPageChanged(context, record.page);
    if (status != kOk) return status;
    Store<uint32_t>(record.Bytes(), record::kInfo, 0);
    Store<uint32_t>(record.Bytes(), record::kLink, 0);
    // The record keeps its size; old bytes must not come back when the stream grows over them.
    std::memset(record.Payload(), 0, record.PayloadSize());
    *freed = true;
    return kOk;
}

void DropStreamState(FileObject* object) {
    DiscardBlocks(object);
    object->blocks.Reset();
    DropBlockList(object);
    object->size = kUnknownSize;
    object->streamEnd = kUnknownSize;
    object->flags &= ~static_cast<uint32_t>(kBlockSettingsKnown);
}

Status LoadBlockSettings(FileObject* object, StorageTransaction* transaction) {
    if ((object->flags & kBlockSettingsKnown) != 0) return kOk;
    StorageContext* context = object->context;
    uint32_t method = kPlainMethod, level = 0, pagesPerBlock = 1;
    PinnedRecord record(context);
    if (object->streamType != kRootDataRecord) {
        const Status status = FindRecord(object, kBlockSettingsRecord, &record, false, transaction);
        if (status != kOk) return status;
    }
    if (record.page != nullptr) {
        if (record.Size() < kSettingsSize) return Corrupt(context);
        method = LoadU32(record.Bytes(), kSettingsMethod);
        level = LoadU32(record.Bytes(), kSettingsLevel);
        pagesPerBlock = LoadU16(record.Bytes(), kSettingsPagesPerBlock);
        if (pagesPerBlock == 0) return Corrupt(context);
        if (uint64_t{pagesPerBlock} * context->payloadSize > kLargestBlock) return kNoMemory;
    }
    object->readMethod = object->writeMethod = method;
    object->level = level;
    object->pagesPerBlock = pagesPerBlock;
    object->flags |= kBlockSettingsKnown;
    return kOk;
}

}  // namespace storage
