// SPDX-License-Identifier: MIT
#include "storage/core/PageIo.h"

#include <algorithm>

#include "storage/core/SwitchMark.h"

namespace storage {

platform::PageFile* OpenPageFile(const WChar* path, ResourceType type, platform::Disposition how) {
    const platform::Handle handle =
        CreateLowIntegrityResource(static_cast<uint32_t>(type), path, static_cast<uint32_t>(how));
    return platform::IsValid(handle) ? platform::AdoptFileHandle(handle, path) : nullptr;
}

Status OpenFailure() {
    const platform::Error error = platform::LastError();
    return error == 0 ? kNoMemory : static_cast<Status>(error);
}

Status OpenContainerFile(StorageContext* context, const WChar* path) {
    constexpr auto kExisting = platform::Disposition::OpenExisting;
    platform::SetLastError(platform::kErrorSuccess);
    context->file = OpenPageFile(path, ResourceType::FileCreate, kExisting);
    context->readOnly = context->file == nullptr;
    context->writingDenied =
        context->readOnly && platform::LastError() == platform::kErrorSharingViolation;
    if (context->readOnly)
        context->file = OpenPageFile(path, ResourceType::FileReadOnly, kExisting);
    return context->file != nullptr ? kOk : OpenFailure();
}

namespace {

void Swap16At(uint8_t* bytes, size_t offset) {
    Store<uint16_t>(bytes, offset, Swap16(LoadU16(bytes, offset)));
}

void Swap32At(uint8_t* bytes, size_t offset) {
    Store<uint32_t>(bytes, offset, Swap32(LoadU32(bytes, offset)));
}

void Swap16Run(uint8_t* bytes, size_t offset, size_t count) {
    for (size_t i = 0; i < count; ++i) Swap16At(bytes, offset + 2 * i);
}

void ReverseEight(uint8_t* bytes, size_t offset) {
    std::reverse(bytes + offset, bytes + offset + 8);
}

void ConvertEntry(uint8_t* bytes, size_t offset) {
    for (size_t field = 0; field < 20; field += 4) Swap32At(bytes, offset + field);
    Swap16Run(bytes, offset + 20, kEntryNameUnits);
}

// inFileLog at 236, the mark of a change behind it and logChainHead at 248 stay as they are: a
// container of the other byte order carries them unconverted.
void ConvertSuperblock(uint8_t* page) {
    Swap16At(page, 12);
    Swap16Run(page, 14, 2 + kBannerUnits);
    for (size_t offset : {144u, 148u, 152u, 156u}) Swap32At(page, offset);
    Swap16At(page, 160);
    Swap16At(page, 162);
    Swap32At(page, 164);
    Swap32At(page, 168);
    ConvertEntry(page, offsetof(Superblock, rootEntry));
    Swap32At(page, 240);
    Swap32At(page, 244);
    Swap32At(page, 252);
}

void ConvertRecordBody(uint8_t* record, uint16_t type, uint32_t size) {
    switch (type) {
        case kFileInfoRecord:
            if (size < kFileInfoSize) break;
            ReverseEight(record, record::kCreated);
            ReverseEight(record, record::kModified);
            ReverseEight(record, record::kAccessed);
            Swap32At(record, record::kFileSize);
            Swap32At(record, record::kFileSize + 4);
            break;
        case kDirectoryRecord:
            for (uint32_t at = record::kPayload; at + kEntrySize <= size; at += kEntrySize)
                ConvertEntry(record, at);
            break;
        case 3:
            if (size >= 16) Swap32At(record, record::kPayload);
            break;
        case kLinkRecord:
            Swap16Run(record, record::kPayload, (size - record::kPayload) / 2);
            break;
        default:
            break;
    }
}

// Walks the records while they can be walked; what is behind a record that cannot be stays as it
// is, both ways.
void ConvertRecords(uint8_t* page, uint32_t pageSize, uint32_t endOffset, Direction direction) {
    if (endOffset <= kRecordsStart || endOffset > pageSize) return;
    for (uint32_t offset = kRecordsStart; offset + kRecordHeaderSize <= endOffset;) {
        uint8_t* record = page + offset;
        uint16_t type = LoadU16(record, record::kType);
        uint16_t size = LoadU16(record, record::kSize);
        if (direction == Direction::Read) {
            type = Swap16(type);
            size = Swap16(size);
        }
        if (size < kRecordHeaderSize || size > endOffset - offset) return;
        Swap16At(record, record::kType);
        Swap16At(record, record::kSize);
        Swap32At(record, record::kInfo);
        Swap32At(record, record::kLink);
        ConvertRecordBody(record, type, size);
        offset += size;
    }
}

void ConvertHeaderPage(uint8_t* page, uint32_t pageSize, Direction direction) {
    uint16_t endOffset = LoadU16(page, 32);
    if (direction == Direction::Read) endOffset = Swap16(endOffset);
    Swap16At(page, 32);
    Swap32At(page, 28);
    ConvertRecords(page, pageSize, endOffset, direction);
}

}  // namespace

uint16_t Swap16(uint16_t value) {
    return static_cast<uint16_t>(value << 8 | value >> 8);
}

uint32_t Swap32(uint32_t value) {
    return value << 24 | (value & 0xFF00) << 8 | (value >> 8 & 0xFF00) | value >> 24;
}

void ConvertPage(const StorageContext* context, void* buffer, Direction direction) {
    uint8_t* page = static_cast<uint8_t*>(buffer);
    const uint32_t pageSize = context->pageSize;
    uint16_t kind = LoadU16(page, 0);
    Swap16At(page, 0);
    if (direction == Direction::Read) kind = LoadU16(page, 0);
    if (kind == context->pageShift) {
        Swap16Run(page, 2, pageSize / 2 - 1);
        return;
    }
    Swap32At(page, 4);
    Swap32At(page, 8);
    if (kind == kSuperblockPage) {
        ConvertSuperblock(page);
        return;
    }
    for (size_t offset : {12u, 16u, 20u, 24u}) Swap32At(page, offset);
    if (kind == kHeaderPage) {
        ConvertHeaderPage(page, pageSize, direction);
        return;
    }
    Swap16At(page, 28);
    Swap16At(page, 30);
    if (kind == kNamePage || kind == kLinkPage) {
        Swap16Run(page, kPageHeaderSize, context->payloadSize / 2);
    } else if (kind == kEntryPage) {
        const uint32_t count = context->payloadSize / kEntrySize;
        for (uint32_t i = 0; i < count; ++i) ConvertEntry(page, kPageHeaderSize + i * kEntrySize);
    }
}

Status ReadPageRaw(platform::PageFile* file, void* buffer, uint32_t size, uint64_t index,
                   uint32_t pageSize) {
    uint32_t done = 0;
    const platform::Error error = file->Read(index * pageSize, buffer, size, &done);
    if (done < size) std::memset(static_cast<uint8_t*>(buffer) + done, 0, size - done);
    return static_cast<Status>(error);
}

namespace {

Status WriteRaw(StorageContext* context, platform::PageFile* file, const void* const* buffers,
                uint32_t count, uint32_t size, uint64_t offset) {
    uint32_t done = 0;
    const platform::Error error = file->Write(offset, buffers, count, size, &done);
    const bool all = error == 0 && done == count * size;
    // Page 1 has its own place in memory.
    const bool whole = all && (context == nullptr || buffers[0] != context->superblock);
    for (uint32_t i = 0; context != nullptr && file == context->file && i < count; ++i)
        context->blocks.Note(offset + uint64_t{i} * size, whole ? buffers[i] : nullptr, size);
    if (error != 0) return static_cast<Status>(error);
    if (!all) return static_cast<Status>(platform::kErrorDiskFull);
    if (context != nullptr) context->wroteSinceLock = true;
    return kOk;
}

}  // namespace

Status WritePageRaw(StorageContext* context, platform::PageFile* file, const void* buffer,
                    uint32_t size, uint64_t index, uint32_t pageSize) {
    return WriteRaw(context, file, &buffer, 1, size, index * pageSize);
}

Status CutFile(platform::PageFile* file, uint64_t count, uint32_t pageSize) {
    return static_cast<Status>(file->Cut(count * pageSize));
}

namespace {

Status ReadInPlace(StorageContext* context, void* buffer, uint32_t page)
    ZRFS_REQUIRES(context->containerLock) {
    const uint64_t address = uint64_t{context->basePage} + page;
    return ReadPageRaw(context->file, buffer, context->pageSize, address, context->pageSize);
}

// Where nobody is left who would write the page it counts as it stands: whoever comes next first
// gives page 1 another counter.
Status ReadAwaited(StorageContext* context, uint8_t* buffer, uint32_t page)
    ZRFS_REQUIRES(context->containerLock) {
    if (IsAsAwaited(context, buffer, page)) return kOk;
    if (!context->file->IsMarkedElsewhere()) return ReadInPlace(context, buffer, page);
    context->metSwitch = true;
    return kSharing;
}

void CopyPage(const PageBytes& page, void* buffer, uint32_t size) {
    std::memcpy(buffer, page.bytes, page.count);
    if (page.count < size)
        std::memset(static_cast<uint8_t*>(buffer) + page.count, 0, size - page.count);
}

PageBytes FindInBlocks(StorageContext* context, uint32_t page, bool readsOn, Status* status)
    ZRFS_REQUIRES(context->containerLock) {
    const uint64_t address = uint64_t{context->basePage} + page;
    bool wasRead = false;
    platform::Error error = 0;
    const PageBytes found = context->blocks.Find(context->file, address * context->pageSize,
                                                 context->pageSize, readsOn, &wasRead, &error);
    if (wasRead) ++context->pageReads;
    *status = static_cast<Status>(error);
    return found;
}

}  // namespace

Status ReadPage(StorageContext* context, void* buffer, uint32_t page) {
    if (page >= context->totalPages) MarkCorrupted(context);
    Status status = kOk;
    // Map pages are also written behind the last writing of page 1 of a change: what a reader
    // without the lock took of them along with their neighbours is nothing to go by.
    const bool mayCome = page < context->totalPages && !context->IsMapPage(page);
    const PageBytes found = mayCome ? FindInBlocks(context, page, false, &status) : PageBytes{};
    if (status != kOk) return status;
    if (found.bytes != nullptr) {
        CopyPage(found, buffer, context->pageSize);
    } else {
        ++context->pageReads;
        status = ReadInPlace(context, buffer, page);
    }
    if (status == kOk && context->byteSwapped) ConvertPage(context, buffer, Direction::Read);
    if (status != kOk || context->awaited.count == 0) return status;
    return ReadAwaited(context, static_cast<uint8_t*>(buffer), page);
}

PageBytes ViewPage(StorageContext* context, uint32_t page, bool readsOn, uint32_t* place) {
    // Without a transaction the cache holds nothing that is newer.
    if (context->transactions.Empty() && context->awaited.count == 0 && !context->byteSwapped &&
        page < context->totalPages) {
        const uint64_t address = uint64_t{context->basePage} + page;
        const PageBytes small = context->blocks.FindSmall(address << context->pageShift, place);
        if (small.bytes != nullptr) return small;
    }
    const CachePage* cached = context->pageTable.Find(page);
    if (cached != nullptr) {
        const bool counts = (cached->flags & kPageInTransaction) == 0 && cached->buffer != nullptr;
        return counts ? PageBytes{cached->buffer, context->pageSize} : PageBytes{};
    }
    if (context->byteSwapped || page >= context->totalPages) return {};
    Status status = kOk;
    const PageBytes found = FindInBlocks(context, page, readsOn, &status);
    if (found.bytes == nullptr || context->awaited.count == 0) return found;
    CopyPage(found, context->swapBuffer, context->pageSize);
    return IsAsAwaited(context, context->swapBuffer, page) ? found : PageBytes{};
}

uint32_t ReadPageRun(StorageContext* context, uint8_t* buffer, uint32_t page, uint32_t count) {
    if (context->byteSwapped || page >= context->totalPages) return 0;
    const uint32_t size = context->pageSize;
    const uint64_t offset = (uint64_t{context->basePage} + page) * size;
    count = std::min(count, context->totalPages - page);
    // What the cache holds may be newer than the file.
    uint32_t run = 0;
    while (run < count && context->pageTable.Find(page + run) == nullptr) ++run;
    if (run < 2) return 0;
    if (context->blocks.Copy(offset, buffer, run * size) < run * size) {
        ++context->pageReads;
        uint32_t done = 0;
        if (context->file->Read(offset, buffer, run * size, &done) != 0) return 0;
        run = done / size;
        context->blocks.Offer(offset, buffer, run * size);
    }
    for (uint32_t i = 0; context->awaited.count != 0 && i < run; ++i)
        if (!IsAsAwaited(context, buffer + i * size, page + i)) run = i;
    return run;
}

Status WritePage(StorageContext* context, const void* buffer, uint32_t page) {
    return WritePages(context, &buffer, 1, page);
}

Status WritePages(StorageContext* context, const void* const* buffers, uint32_t count,
                  uint32_t page) {
    const uint32_t size = context->pageSize;
    const uint64_t address = uint64_t{context->basePage} + page;
    if (!context->byteSwapped)
        return WriteRaw(context, context->file, buffers, count, size, address * size);
    for (uint32_t i = 0; i < count; ++i) {
        std::memcpy(context->swapBuffer, buffers[i], size);
        ConvertPage(context, context->swapBuffer, Direction::Write);
        const Status status =
            WritePageRaw(context, context->file, context->swapBuffer, size, address + i, size);
        if (status != kOk) return status;
    }
    return kOk;
}

Status WriteFreshPages(StorageContext* context, uint8_t* pages, uint32_t count, uint32_t first) {
    const uint32_t size = context->pageSize;
    for (uint32_t i = 0; context->byteSwapped && i < count; ++i)
        ConvertPage(context, pages + size_t{i} * size, Direction::Write);
    const uint64_t offset = (uint64_t{context->basePage} + first) * size;
    const void* const all = pages;
    uint32_t done = 0;
    const platform::Error error = context->file->Write(offset, &all, 1, count * size, &done);
    context->blocks.Note(offset, nullptr, count * size);
    if (error != 0) return static_cast<Status>(error);
    if (done != count * size) return static_cast<Status>(platform::kErrorDiskFull);
    context->wroteSinceLock = true;
    return kOk;
}

Status ReadLogPage(StorageContext* context, void* buffer, uint32_t index) {
    const uint32_t size = context->pageSize;
    if (!context->logInFile) return ReadPageRaw(context->logFile, buffer, size, index, size);
    const uint64_t address = uint64_t{context->basePage} + context->totalPages - index - 1;
    return ReadPageRaw(context->file, buffer, size, address, size);
}

Status WriteSuperblock(StorageContext* context) {
    ClearSwitchList(context);
    return WritePage(context, context->superblock, kSuperblockNumber);
}

// With page 1 as it stands on disk and only the bit changed.
Status MarkCorrupted(StorageContext* context) {
    if (!context->active || context->readOnly || context->superblock == nullptr) return kOk;
    if (!context->IsLocked()) return kOk;
    context->Super()->flags |= kFlagCorrupted;
    uint8_t* page = static_cast<uint8_t*>(platform::HeapAllocate(context->pageSize));
    if (page == nullptr) return kNoMemory;
    const uint64_t address = uint64_t{context->basePage} + kSuperblockNumber;
    Status status = ReadPageRaw(context->file, page, context->pageSize, address, context->pageSize);
    if (status == kOk && context->byteSwapped) ConvertPage(context, page, Direction::Read);
    Superblock* super = reinterpret_cast<Superblock*>(page);
    if (status == kOk && super->kind == kSuperblockPage && (super->flags & kFlagCorrupted) == 0) {
        super->flags |= kFlagCorrupted;
        status = WritePage(context, page, kSuperblockNumber);
    }
    platform::HeapRelease(page);
    return status;
}

Status Corrupt(StorageContext* context) {
    MarkCorrupted(context);
    return kCorrupt;
}

}  // namespace storage
