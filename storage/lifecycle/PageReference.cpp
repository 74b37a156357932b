// SPDX-License-Identifier: MIT
#include "storage/lifecycle/PageReference.h"

#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"

namespace storage {

namespace {

// The references of one page, each by its offset. A visit that answers anything but kOk ends the
// walk with that.
enum class ReferenceField { Record, EntryHeader, EntryName, Slot };

template <class Visit>
Status VisitEntries(uint8_t* page, uint32_t offset, uint32_t count, Visit visit) {
    for (uint32_t i = 0; i < count; ++i, offset += kEntrySize) {
        if (LoadU32(page, offset) == 0) continue;
        Status status = visit(ReferenceField::EntryHeader, offset + 4, uint16_t{kHeaderPage});
        if (status == kOk)
            status = visit(ReferenceField::EntryName, offset + 16, uint16_t{kNamePage});
        if (status != kOk) return status;
    }
    return kOk;
}

template <class Visit>
Status VisitRecords(StorageContext* context, uint8_t* page, Visit visit) {
    const uint32_t end = HeaderPageOf(page)->endOffset;
    if (end > context->pageSize) return Status{kCorrupt};
    for (uint32_t offset = kRecordsStart; offset + kRecordHeaderSize <= end;) {
        const uint8_t* record = page + offset;
        const uint16_t type = LoadU16(record, record::kType);
        const uint16_t size = LoadU16(record, record::kSize);
        if (size < kRecordHeaderSize || size > end - offset) return Status{kCorrupt};
        Status status = kOk;
        if (LoadU32(record, record::kLink) != 0) {
            status = visit(ReferenceField::Record, offset + record::kLink,
                           static_cast<uint16_t>(type + kRecordKindBase));
        } else if (type == kDirectoryRecord) {
            status = VisitEntries(page, offset + record::kPayload,
                                  (size - record::kPayload) / kEntrySize, visit);
        }
        if (status != kOk) return status;
        offset += size;
    }
    return kOk;
}

// Calls visit(field, offset, kind) for each place of the page's payload that can refer to another
// page, with the kind that page is to have.
template <class Visit>
Status VisitReferences(StorageContext* context, uint8_t* page, Visit visit) {
    switch (HeaderOf(page)->kind) {
        case kHeaderPage:
            return VisitRecords(context, page, visit);
        case kEntryPage:
            return VisitEntries(page, kPageHeaderSize, context->payloadSize / kEntrySize, visit);
        case kPageListPage:
            for (uint32_t at = kPageHeaderSize; at + 4 <= context->pageSize; at += 4) {
                const Status status = visit(ReferenceField::Slot, at, uint16_t{kDataPage});
                if (status != kOk) return status;
            }
            return kOk;
        default:
            return kOk;
    }
}

// True when a page of `kind` may be the page before one with this header.
bool MayPrecede(uint16_t kind, const PageHeader& header) {
    if (kind == header.kind) return true;
    if (header.level != 0) return false;
    if (kind == kHeaderPage) return true;
    return kind == kEntryPage && (header.kind == kNamePage || header.kind == kHeaderPage);
}

struct Replacement {
    uint32_t old;
    uint32_t now;
    uint16_t kind;
    uint32_t count = 0;

    // False when the reference is one that a page of this kind cannot have.
    bool Apply(uint32_t* field, bool allowed) {
        if (*field != old) return true;
        if (!allowed) return false;
        *field = now;
        ++count;
        return true;
    }
};

bool ReplaceInHeader(PageHeader* header, Replacement* replacement) {
    return replacement->Apply(&header->prevPage, MayPrecede(replacement->kind, *header)) &&
           replacement->Apply(&header->nextPage, replacement->kind == header->kind) &&
           replacement->Apply(&header->listPage, replacement->kind == kPageListPage);
}

Status ReplaceIn(StorageContext* context, uint8_t* page, Replacement* replacement) {
    if (!ReplaceInHeader(HeaderOf(page), replacement)) return Status{kCorrupt};
    const Status status = VisitReferences(
        context, page, [&](ReferenceField field, uint32_t offset, uint16_t expected) -> Status {
            uint32_t number = LoadU32(page, offset);
            // The index lists whatever pages the stream has, those of a link included.
            const bool allowed = replacement->kind == expected ||
                                 (field == ReferenceField::Slot && replacement->kind == kLinkPage);
            if (!replacement->Apply(&number, allowed)) return Status{kCorrupt};
            Store<uint32_t>(page, offset, number);
            return kOk;
        });
    if (status != kOk) return status;
    return replacement->count == 1 ? kOk : Status{kCorrupt};
}

}  // namespace

Status FixPageReference(StorageContext* context, uint32_t number, uint32_t old, uint32_t now,
                        StorageTransaction* transaction, uint16_t kind) {
    if (number >= context->knownPages || context->IsMapPage(number)) return Status{kCorrupt};
    CachePage* page = nullptr;
    Status status = GetPage(context, number, &page, true, transaction);
    if (status != kOk) return status;
    Replacement replacement{old, now, kind};
    // Marked first: a page that turns out wrong half-way is thrown away with the transaction.
    status = MarkPageChanged(context, page);
    if (status == kOk) status = ReplaceIn(context, page->buffer, &replacement);
    ReleasePage(context, page);
    return status;
}

Status FixChildReferences(StorageContext* context, CachePage* page, uint32_t old,
                          StorageTransaction* transaction) {
    const uint16_t kind = HeaderOf(page->buffer)->kind;
    return VisitReferences(
        context, page->buffer, [&](ReferenceField, uint32_t offset, uint16_t) -> Status {
            const uint32_t child = LoadU32(page->buffer, offset);
            if (child == 0) return kOk;
            return FixPageReference(context, child, old, page->number, transaction, kind);
        });
}

}  // namespace storage
