// SPDX-License-Identifier: MIT
#include "storage/namespace/Records.h"

#include <algorithm>

#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/namespace/Directory.h"

namespace storage {

namespace {

// A record that its readers take fields from is at least this long.
uint32_t MinimumSize(uint16_t type) {
    switch (type) {
        case kFileInfoRecord:
            return kFileInfoSize;
        case kBlockSettingsRecord:
            return 22;
        case kFindSettingsRecord:
            return 16;
        default:
            return kRecordHeaderSize;
    }
}

// The end offset has 16 bits: the last byte of the largest page cannot be used.
uint32_t EndLimit(const StorageContext* context) {
    return std::min<uint32_t>(context->pageSize, UINT16_MAX);
}

bool EndOffsetIsValid(const StorageContext* context, CachePage* page) {
    const uint32_t end = HeaderPageOf(page->buffer)->endOffset;
    return end >= kRecordsStart && end <= EndLimit(context);
}

// Looks through one page; *place stays null when the type is not there.
Status FindOnPage(StorageContext* context, CachePage* page, uint16_t type, RecordPlace* place) {
    Status status = kOk;
    uint32_t offset = 0;
    while (NextRecord(context, page, &offset, &status)) {
        const RecordPlace here{page, offset};
        if (LoadU16(here.Bytes(), record::kType) != type) continue;
        if (here.Size() < MinimumSize(type)) return Corrupt(context);
        *place = here;
        return kOk;
    }
    return status;
}

bool IsMovable(const RecordPlace& place, uint16_t protectedType) {
    const uint16_t type = LoadU16(place.Bytes(), record::kType);
    return (type == kDirectoryRecord || type == kDataRecord || type == kLinkRecord) &&
           type != protectedType && place.Link() == 0;
}

// Makes `size` the record's size: those behind it move, and what the page no longer uses is
// zeroed. Sizes were checked.
void MoveTail(StorageContext* context, const RecordPlace& place, uint32_t size) {
    uint8_t* buffer = place.page->buffer;
    HeaderPageHeader* header = HeaderPageOf(buffer);
    const uint32_t end = header->endOffset;
    const uint32_t tail = place.offset + place.Size();
    const uint32_t newTail = place.offset + size;
    const uint32_t newEnd = newTail + (end - tail);
    std::memmove(buffer + newTail, buffer + tail, end - tail);
    if (newTail > tail) std::memset(buffer + tail, 0, newTail - tail);
    if (newEnd < context->pageSize) std::memset(buffer + newEnd, 0, context->pageSize - newEnd);
    header->endOffset = static_cast<uint16_t>(newEnd);
}

// A further HeaderPage behind `last`.
Status AppendHeaderPage(FileObject* object, CachePage* last, CachePage** page,
                        StorageTransaction* transaction) {
    StorageContext* context = object->context;
    Status status = MarkPageChanged(context, last);
    if (status == kOk) status = AllocatePage(context, kHeaderPage, page, transaction);
    if (status != kOk) return status;
    HeaderPageHeader* header = HeaderPageOf((*page)->buffer);
    header->prevPage = last->number;
    header->fileId = object->fileId;
    header->level = HeaderOf(last->buffer)->level + 1;
    header->parentId = HeaderPageOf(last->buffer)->parentId;
    header->endOffset = kRecordsStart;
    HeaderOf(last->buffer)->nextPage = (*page)->number;
    return kOk;
}

// The first page of the chain that has or can make room for a record of `size` bytes, or a new
// one at its end.
Status FindRoom(FileObject* object, uint32_t size, CachePage** out,
                StorageTransaction* transaction) {
    StorageContext* context = object->context;
    uint32_t left = context->totalPages;
    for (uint32_t number = object->headerPage;;) {
        if (left-- == 0) return Corrupt(context);
        CachePage* page = nullptr;
        Status status =
            GetPageChecked(context, number, kHeaderPage, &page, object->fileId, transaction);
        if (status != kOk) return status;
        if (!EndOffsetIsValid(context, page)) status = Corrupt(context);
        bool fits = HeaderPageOf(page->buffer)->endOffset + size < context->pageSize;
        // The stream is never moved behind the back of the blocks that are open on it.
        if (status == kOk && !fits)
            status = MakeRoom(object, page, object->streamType, size, &fits, transaction);
        if (status == kOk && fits) {
            *out = page;
            return kOk;
        }
        number = HeaderOf(page->buffer)->nextPage;
        const bool atEnd = number == 0;
        if (status == kOk && atEnd) status = AppendHeaderPage(object, page, out, transaction);
        ReleasePage(context, page);
        if (status != kOk || atEnd) return status;
    }
}

}  // namespace

bool NextRecord(StorageContext* context, CachePage* page, uint32_t* offset, Status* status) {
    if (!EndOffsetIsValid(context, page)) {
        *status = Corrupt(context);
        return false;
    }
    const uint32_t end = HeaderPageOf(page->buffer)->endOffset;
    const uint32_t next =
        *offset == 0 ? kRecordsStart : *offset + LoadU16(page->buffer, *offset + record::kSize);
    if (next >= end) return false;
    const uint32_t size =
        next + kRecordHeaderSize > end ? 0 : LoadU16(page->buffer, next + record::kSize);
    if (size < kRecordHeaderSize || next + size > end) {
        *status = Corrupt(context);
        return false;
    }
    *offset = next;
    return true;
}

bool RecordWalk::Begin(const PageBytes& found, uint32_t fileId) {
    HeaderPageHeader header;
    if (found.count < sizeof header) return false;
    std::memcpy(&header, found.bytes, sizeof header);
    page = found.bytes;
    end = header.endOffset;
    return header.kind == kHeaderPage && header.fileId == fileId && header.nextPage == 0 &&
           end <= found.count;
}

bool RecordWalk::Next(const uint8_t** record) {
    *record = nullptr;
    if (at >= end) return true;
    if (at + kRecordHeaderSize > end) return false;
    const uint32_t size = LoadU16(page, at + record::kSize);
    if (size < kRecordHeaderSize || at + size > end) return false;
    *record = page + at;
    at += size;
    return true;
}

Status FindRecordAt(StorageContext* context, uint32_t fileId, uint32_t firstPage, uint16_t type,
                    RecordPlace* place, bool mustExist, StorageTransaction* transaction) {
    *place = RecordPlace{};
    uint32_t left = context->totalPages;
    for (uint32_t number = firstPage; number != 0;) {
        if (left-- == 0) return Corrupt(context);
        CachePage* page = nullptr;
        Status status = GetPageChecked(context, number, kHeaderPage, &page, fileId, transaction);
        if (status != kOk) return status;
        status = FindOnPage(context, page, type, place);
        if (place->page != nullptr) return kOk;
        number = HeaderOf(page->buffer)->nextPage;
        ReleasePage(context, page);
        if (status != kOk) return status;
    }
    return mustExist ? Corrupt(context) : kOk;
}

Status FindRecord(FileObject* object, uint16_t type, RecordPlace* place, bool mustExist,
                  StorageTransaction* transaction) {
    return FindRecordAt(object->context, object->fileId, object->headerPage, type, place, mustExist,
                        transaction);
}

Status AddRecord(FileObject* object, uint16_t type, const void* data, uint32_t length,
                 RecordPlace* place, StorageTransaction* transaction) {
    StorageContext* context = object->context;
    if (place != nullptr) *place = RecordPlace{};
    if (length > context->pageSize - 48 - kRecordHeaderSize) return kInvalid;
    RecordPlace existing;
    Status status = FindRecord(object, type, &existing, false, transaction);
    if (status != kOk) return status;
    if (existing.page != nullptr) {
        ReleasePage(context, existing.page);
        return kRecordExists;
    }
    CachePage* page = nullptr;
    status = FindRoom(object, length + kRecordHeaderSize, &page, transaction);
    if (status != kOk) return status;
    status = MarkPageChanged(context, page);
    if (status == kOk) {
        HeaderPageHeader* header = HeaderPageOf(page->buffer);
        const RecordPlace made{page, header->endOffset};
        const uint32_t size = length + kRecordHeaderSize;
        Store<uint16_t>(made.Bytes(), record::kType, type);
        Store<uint16_t>(made.Bytes(), record::kSize, static_cast<uint16_t>(size));
        Store<uint32_t>(made.Bytes(), record::kInfo, length);
        Store<uint32_t>(made.Bytes(), record::kLink, 0);
        if (length != 0) std::memcpy(made.Payload(), data, length);
        header->endOffset = static_cast<uint16_t>(header->endOffset + size);
        if (place != nullptr) {
            *place = made;
            return kOk;
        }
    }
    ReleasePage(context, page);
    return status;
}

Status MakeRoom(FileObject* object, CachePage* page, uint16_t protectedType, uint32_t needed,
                bool* fits, StorageTransaction* transaction) {
    StorageContext* context = object->context;
    *fits = false;
    Status status = kOk;
    uint32_t reclaimable = 0;
    uint32_t offset = 0;
    while (NextRecord(context, page, &offset, &status)) {
        const RecordPlace place{page, offset};
        if (IsMovable(place, protectedType)) reclaimable += place.PayloadSize();
    }
    if (status != kOk) return status;
    const auto free = [&] { return EndLimit(context) - HeaderPageOf(page->buffer)->endOffset; };
    *fits = free() + reclaimable >= needed;
    if (!*fits) return kOk;
    for (offset = 0; free() < needed && NextRecord(context, page, &offset, &status);) {
        const RecordPlace place{page, offset};
        if (!IsMovable(place, protectedType)) continue;
        // The pages of children name the page that has their entries.
        status = LoadU16(place.Bytes(), record::kType) == kDirectoryRecord
                     ? MoveEntriesOut(object, transaction)
                     : SpillRecord(object, place, nullptr, transaction);
        if (status != kOk) return status;
    }
    // What moved may be another record of the same type: a damaged object has several.
    *fits = free() >= needed;
    return status;
}

Status SpillRecord(FileObject* object, const RecordPlace& place, CachePage** newPage,
                   StorageTransaction* transaction) {
    StorageContext* context = object->context;
    if (newPage != nullptr) *newPage = nullptr;
    if (place.Link() != 0) return kOk;
    const uint16_t type = LoadU16(place.Bytes(), record::kType);
    Status status = MarkPageChanged(context, place.page);
    CachePage* page = nullptr;
    if (status == kOk)
        status = AllocatePage(context, static_cast<uint16_t>(type + kRecordKindBase), &page,
                              transaction);
    if (status != kOk) return status;
    PageHeader* header = HeaderOf(page->buffer);
    header->prevPage = place.page->number;
    header->fileId = HeaderOf(place.page->buffer)->fileId;
    header->recordType = type;
    if (type == object->streamType) header->recordInfo = static_cast<uint16_t>(place.Info());
    std::memcpy(page->buffer + kPageHeaderSize, place.Payload(), place.PayloadSize());
    MoveTail(context, place, kRecordHeaderSize);
    Store<uint16_t>(place.Bytes(), record::kSize, kRecordHeaderSize);
    Store<uint32_t>(place.Bytes(), record::kLink, page->number);
    if (newPage != nullptr)
        *newPage = page;
    else
        ReleasePage(context, page);
    return kOk;
}

Status ResizeRecord(StorageContext* context, const RecordPlace& place, uint32_t payload) {
    const uint32_t end = HeaderPageOf(place.page->buffer)->endOffset;
    const uint64_t size = uint64_t{payload} + kRecordHeaderSize;
    if (end - place.Size() + size > EndLimit(context)) return kInvalid;
    const Status status = MarkPageChanged(context, place.page);
    if (status != kOk) return status;
    MoveTail(context, place, static_cast<uint32_t>(size));
    Store<uint16_t>(place.Bytes(), record::kSize, static_cast<uint16_t>(size));
    Store<uint32_t>(place.Bytes(), record::kInfo, payload);
    return kOk;
}

Status RemoveRecord(FileObject* object, uint16_t type, StorageTransaction* transaction) {
    StorageContext* context = object->context;
    RecordPlace place;
    Status status = FindRecord(object, type, &place, false, transaction);
    if (status != kOk || place.page == nullptr) return status;
    status = MarkPageChanged(context, place.page);
    if (status == kOk) MoveTail(context, place, 0);
    ReleasePage(context, place.page);
    return status;
}

}  // namespace storage
