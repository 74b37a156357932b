// SPDX-License-Identifier: MIT
#include "storage/namespace/Blocks.h"

#include <algorithm>
#include <new>

#include "storage/core/PageIo.h"
#include "storage/namespace/BlockCode.h"
#include "storage/namespace/Stream.h"

namespace storage {
namespace {

constexpr uint32_t kSpareRoom = 0x20000;  // larger buffers go back to the heap

// Place in the object's list of the first block that starts at or behind `start`.
uint32_t PlaceOf(FileObject* object, uint64_t start) {
    const auto& blocks = object->blocks;
    uint32_t low = 0, high = blocks.Count();
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        if (blocks[middle]->start < start)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

// A record with a stored buffer of `room` bytes behind it.
FileBlock* TakeBlock(ObjectState* state, uint32_t room) {
    FileBlock* block = state->spareBlocks.Take();
    if (block != nullptr && block->room < room) {
        platform::HeapRelease(block);
        block = nullptr;
    }
    if (block != nullptr) room = block->room;
    void* memory = block != nullptr ? block : platform::HeapAllocate(sizeof(FileBlock) + room);
    if (memory == nullptr) return nullptr;
    block = new (memory) FileBlock{};
    block->room = room;
    block->stored = reinterpret_cast<uint8_t*>(block + 1);
    return block;
}

void GiveBlock(ObjectState* state, FileBlock* block) {
    if (block->data != block->stored) platform::HeapRelease(block->data);
    platform::HeapRelease(block->backup);
    if (block->room > kSpareRoom || !state->spareBlocks.Keep(block)) platform::HeapRelease(block);
}

FileBlock* NewBlock(FileObject* object, uint64_t start) {
    ObjectState* state = object->context->objects;
    const uint32_t capacity = BlockBytes(object);
    FileBlock* block = TakeBlock(state, capacity + kStoredSlack);
    if (block == nullptr) return nullptr;
    block->start = start;
    block->capacity = capacity;
    block->object = object;
    block->references = 1;
    block->data = block->stored;
    if (object->readMethod == kPlainMethod && object->writeMethod == kPlainMethod) return block;
    block->data = static_cast<uint8_t*>(platform::HeapAllocate(capacity));
    block->backup = static_cast<uint8_t*>(platform::HeapAllocate(capacity));
    if (block->data != nullptr && block->backup != nullptr) return block;
    GiveBlock(state, block);
    return nullptr;
}

void KeepBackup(FileBlock* block) {
    if (block->backup == nullptr) return;
    std::memcpy(block->backup, block->data, block->dataLength);
    block->backupLength = block->dataLength;
}

uint32_t FirstOrdinal(const FileBlock* block) {
    return static_cast<uint32_t>(block->start / block->object->context->payloadSize);
}

// Pages that the block has, one behind the other.
uint32_t PageCount(const FileBlock* block) {
    const NumberList& list = block->object->pageList;
    const uint32_t first = FirstOrdinal(block);
    uint32_t count = 0;
    while (count < block->object->pagesPerBlock && first + count < list.Count() &&
           list[first + count] != 0)
        ++count;
    return count;
}

// Loads the stored bytes of an inline block; *found tells whether the stream is inline.
Status LoadInline(FileBlock* block, bool* found, uint32_t* method,
                  StorageTransaction* transaction) {
    FileObject* object = block->object;
    PinnedRecord record(object->context);
    const Status status = FindRecord(object, object->streamType, &record, true, transaction);
    if (status != kOk) return status;
    *found = record.Link() == 0;
    if (!*found) {
        // Room made for another record moved the stream to a page.
        if (object->pageList.Empty()) DropBlockList(object);
        return kOk;
    }
    block->storedLength = record.PayloadSize();
    if (block->storedLength > block->capacity) return Corrupt(object->context);
    std::memcpy(block->stored, record.Payload(), block->storedLength);
    if (record.Info() == 0) *method = kPlainMethod;
    block->flags |= kBlockInline;
    return kOk;
}

// Adds the bytes of one page; *last tells that it ends the block.
Status LoadPage(FileBlock* block, uint32_t ordinal, bool* last, uint32_t* method,
                StorageTransaction* transaction) {
    FileObject* object = block->object;
    StorageContext* context = object->context;
    PinnedPage page(context);
    const Status status = FetchStreamPage(object, ordinal, &page.page, transaction);
    if (status != kOk) return status;
    *last = page.page == nullptr;
    if (*last) return ordinal == FirstOrdinal(block) ? Corrupt(context) : kOk;
    uint32_t bytes = page.Header()->recordInfo;
    if (bytes > context->payloadSize) return Corrupt(context);
    if (bytes == 0) {
        bytes = context->payloadSize;
        *method = kPlainMethod;
    }
    std::memcpy(block->stored + block->storedLength, page.Payload(), bytes);
    block->storedLength += bytes;
    *last = bytes < context->payloadSize;
    return kOk;
}

Status LoadBlock(FileBlock* block, uint64_t streamEnd, StorageTransaction* transaction) {
    FileObject* object = block->object;
    uint32_t method = object->readMethod;
    bool isInline = false;
    Status status = kOk;
    if (block->start == 0) status = LoadInline(block, &isInline, &method, transaction);
    const uint32_t first = FirstOrdinal(block);
    bool last = isInline;
    for (uint32_t i = 0; status == kOk && !last && i < object->pagesPerBlock; ++i)
        status = LoadPage(block, first + i, &last, &method, transaction);
    if (status == kOk) status = DecodeBlock(block, method);
    if (status != kOk) return status;
    if (block->start + block->dataLength > streamEnd)
        block->dataLength =
            streamEnd > block->start ? static_cast<uint32_t>(streamEnd - block->start) : 0;
    KeepBackup(block);
    return kOk;
}

// Finds place for the stored bytes in the HeaderPage, or moves the stream to a page of its own.
Status PlaceInline(FileBlock* block, uint32_t rounded, PinnedRecord* record,
                   StorageTransaction* transaction) {
    FileObject* object = block->object;
    const uint16_t type = object->streamType;
    Status status = FindRecord(object, type, record, true, transaction);
    if (status != kOk || record->Link() != 0) return status;
    const bool toPages = (block->flags & kBlockToPages) != 0;
    bool fits = !toPages && rounded < record->PayloadSize();
    if (!toPages && !fits) {
        status = MakeRoom(object, record->page, type, rounded, &fits, transaction);
        if (status != kOk) return status;
        record->Release();
        status = FindRecord(object, type, record, true, transaction);
        if (status != kOk || fits) return status;
    }
    return fits ? kOk : SpillRecord(object, *record, nullptr, transaction);
}

// *stored tells whether the block stayed inline; otherwise it has a page now.
Status StoreInline(FileBlock* block, bool coded, bool* stored, StorageTransaction* transaction) {
    FileObject* object = block->object;
    const uint32_t rounded = (block->storedLength + 31) & ~31u;
    PinnedRecord record(object->context);
    Status status = PlaceInline(block, rounded, &record, transaction);
    if (status != kOk) return status;
    *stored = record.Link() == 0;
    if (!*stored) {
        block->flags &= ~static_cast<uint32_t>(kBlockInline | kBlockToPages);
        DropBlockList(object);
        return LoadBlockList(object, transaction);
    }
    if (rounded != record.PayloadSize()) status = ResizeRecord(object->context, record, rounded);
    if (status == kOk) status = MarkPageChanged(object->context, record.page);
    if (status != kOk) return status;
    Store<uint32_t>(record.Bytes(), record::kInfo, coded ? rounded : 0);
    std::memcpy(record.Payload(), block->stored, block->storedLength);
    std::memset(record.Payload() + block->storedLength, 0, rounded - block->storedLength);
    return kOk;
}

Status WriteBlockPage(FileBlock* block, uint32_t index, bool coded,
                      StorageTransaction* transaction) {
    StorageContext* context = block->object->context;
    const uint32_t payload = context->payloadSize;
    const uint32_t bytes = std::min(payload, block->storedLength - index * payload);
    PinnedPage page(context);
    Status status =
        FetchStreamPage(block->object, FirstOrdinal(block) + index, &page.page, transaction);
    if (status == kOk && page.page == nullptr) status = Corrupt(context);
    if (status == kOk) status = MarkPageChanged(context, page.page);
    if (status != kOk) return status;
    std::memcpy(page.Payload(), block->stored + index * payload, bytes);
    std::memset(page.Payload() + bytes, 0, payload - bytes);
    page.Header()->recordInfo = static_cast<uint16_t>(coded ? bytes : 0);
    return kOk;
}

Status StoreInPages(FileBlock* block, bool coded, StorageTransaction* transaction) {
    FileObject* object = block->object;
    const uint32_t payload = object->context->payloadSize;
    const uint32_t needed = std::max(1u, (block->storedLength + payload - 1) / payload);
    const uint32_t first = FirstOrdinal(block);
    Status status = LoadBlockList(object, transaction);
    const uint32_t have = PageCount(block);
    if (status == kOk && have == 0) status = Corrupt(object->context);
    for (uint32_t i = have; status == kOk && i < needed; ++i)
        status = InsertStreamPage(object, first + i, transaction);
    if (status == kOk && have > needed)
        status = RemoveStreamPages(object, first + needed, first + have, transaction);
    for (uint32_t i = 0; status == kOk && i < needed; ++i)
        status = WriteBlockPage(block, i, coded, transaction);
    return status;
}

Status StoreOnce(FileBlock* block, StorageTransaction* transaction) {
    const bool coded = EncodeBlock(block);
    if ((block->flags & kBlockInline) != 0) {
        bool stored = false;
        const Status status = StoreInline(block, coded, &stored, transaction);
        if (status != kOk || stored) return status;
    }
    return StoreInPages(block, coded, transaction);
}

bool DiffersFromBackup(const FileBlock* block) {
    return block->backup != nullptr &&
           (block->backupLength != block->dataLength ||
            std::memcmp(block->backup, block->data, block->dataLength) != 0);
}

// True when a position belongs to stored data. At a stream end between two blocks there is no
// block yet.
bool Reaches(const FileObject* object, uint64_t position) {
    const uint64_t end = object->streamEnd;
    return position < end || (position == end && (end == 0 || end % BlockBytes(object) != 0));
}

bool Holds(const FileBlock* block, uint64_t position) {
    return block != nullptr && position >= block->start &&
           position - block->start < block->capacity;
}

}  // namespace

Status OpenBlock(FileObject* object, uint64_t start, FileBlock** block,
                 StorageTransaction* transaction) {
    const uint32_t place = PlaceOf(object, start);
    if (place < object->blocks.Count() && object->blocks[place]->start == start) {
        *block = object->blocks[place];
        ++(*block)->references;
        return kOk;
    }
    FileBlock* loaded = NewBlock(object, start);
    if (loaded == nullptr) return kNoMemory;
    Status status = LoadBlock(loaded, object->streamEnd, transaction);
    if (status == kOk && !object->blocks.Insert(place, loaded)) status = kNoMemory;
    if (status == kOk)
        *block = loaded;
    else
        GiveBlock(object->context->objects, loaded);
    return status;
}

void SetDataLength(FileBlock* block, uint32_t length) {
    if (length > block->dataLength) {
        std::memset(block->data + block->dataLength, 0, length - block->dataLength);
        block->flags |= kBlockPlainOnce;
    }
    block->dataLength = length;
    block->flags |= kBlockDirty;
}

void DiscardBlock(FileBlock* block) {
    FileObject* object = block->object;
    const uint32_t place = PlaceOf(object, block->start);
    if (place < object->blocks.Count() && object->blocks[place] == block)
        object->blocks.RemoveAt(place);
    GiveBlock(object->context->objects, block);
}

Status GetBlock(FileObject* object, uint64_t position, FileBlock** block, bool mayExtend,
                StorageTransaction* transaction) {
    Status status = ComputeStreamEnd(object, transaction);
    if (status != kOk) return status;
    if (!Reaches(object, position)) {
        if (!mayExtend) return kEndOfData;
        status = SetStreamEnd(object, position, block, transaction);
        if (status != kOk) return status;
        if (!Reaches(object, position)) return Corrupt(object->context);
    }
    if (Holds(*block, position)) return kOk;
    FileBlock* found = nullptr;
    status = OpenBlock(object, position - position % BlockBytes(object), &found, transaction);
    if (status != kOk) return status;
    FileBlock* before = *block;
    *block = found;
    status = ReleaseBlock(&before, transaction);
    // A block made for another form of the stream: to go on would be to go on for ever.
    return status == kOk && !Holds(found, position) ? Status{kInternal} : status;
}

Status ReleaseBlock(FileBlock** block, StorageTransaction* transaction) {
    FileBlock* given = *block;
    *block = nullptr;
    if (given == nullptr || --given->references > 0) return kOk;
    const Status status = StoreBlock(given, transaction);
    DiscardBlock(given);
    return status;
}

Status StoreBlock(FileBlock* block, StorageTransaction* transaction) {
    if ((block->flags & kBlockDirty) == 0) return kOk;
    const Status status = StoreOnce(block, transaction);
    if (status == kOk) {
        block->flags &= ~static_cast<uint32_t>(kBlockDirty);
        KeepBackup(block);
    } else if (DiffersFromBackup(block)) {
        std::memcpy(block->data, block->backup, block->backupLength);
        block->dataLength = block->backupLength;
        StoreBlock(block, transaction);
    }
    return status;
}

}  // namespace storage
