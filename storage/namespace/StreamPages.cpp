// SPDX-License-Identifier: MIT
#include "storage/namespace/StreamPages.h"

#include <algorithm>

#include "storage/core/PageIo.h"
#include "storage/namespace/Stream.h"

namespace storage {
namespace {

constexpr uint32_t kNoOrdinal = 0xFFFFFFFF;

uint32_t EntriesPerIndexPage(const FileObject* object) {
    return object->context->payloadSize / uint32_t{sizeof(uint32_t)};
}

// Grows the list with holes. False when there is no memory.
bool GrowList(FileObject* object, uint32_t count) {
    NumberList& list = object->pageList;
    if (!list.Reserve(count)) return false;
    while (list.Count() < count) list.Add(0);
    return true;
}

// The last ordinal below `ordinal` that has a page.
uint32_t PageBefore(const FileObject* object, uint32_t ordinal) {
    uint32_t at = std::min(ordinal, object->pageList.Count());
    while (at > 0)
        if (object->pageList[--at] != 0) return at;
    return kNoOrdinal;
}

Status LoadOwnPage(FileObject* object, uint32_t number, uint16_t kind, CachePage** page,
                   StorageTransaction* transaction) {
    StorageContext* context = object->context;
    if (number >= context->totalPages) return Corrupt(context);
    return GetPageChecked(context, number, kind, page, object->fileId, transaction);
}

// The same, to be changed.
Status OpenOwnPage(FileObject* object, uint32_t number, uint16_t kind, PinnedPage* page,
                   StorageTransaction* transaction) {
    const Status status = LoadOwnPage(object, number, kind, &page->page, transaction);
    return status != kOk ? status : MarkPageChanged(object->context, page->page);
}

// Pages taken out of a chain cannot be put back one by one: when that fails half-way, only a roll
// back makes the stream whole again.
Status OrRollBack(Status status, StorageTransaction* transaction) {
    if (status != kOk && transaction != nullptr) transaction->failure = status;
    return status;
}

Status FreePinned(PinnedPage* page) {
    CachePage* freed = page->page;
    page->page = nullptr;
    return FreePage(page->context, freed);
}

Status FreeOwnPage(FileObject* object, uint32_t number, uint16_t kind,
                   StorageTransaction* transaction) {
    PinnedPage page(object->context);
    const Status status = LoadOwnPage(object, number, kind, &page.page, transaction);
    return status != kOk ? status : FreePinned(&page);
}

// Levels of index pages count from 0, so that a chain that runs in a circle is noticed at once.
Status ReadIndexPage(FileObject* object, uint32_t number, uint32_t* next,
                     StorageTransaction* transaction) {
    StorageContext* context = object->context;
    PinnedPage page(context);
    const Status status = LoadOwnPage(object, number, kPageListPage, &page.page, transaction);
    if (status != kOk) return status;
    if (page.Header()->level != object->pageListPages.Count()) return Corrupt(context);
    const uint32_t entries = EntriesPerIndexPage(object);
    if (!object->pageListPages.Add(number) ||
        !object->pageList.Reserve(object->pageList.Count() + entries))
        return kNoMemory;
    for (uint32_t i = 0; i < entries; ++i) {
        const uint32_t entry = LoadU32(page.Payload(), i * sizeof(uint32_t));
        if (entry >= context->totalPages) return Corrupt(context);
        object->pageList.Add(entry);
    }
    *next = page.Header()->nextPage;
    return kOk;
}

Status ReadIndex(FileObject* object, uint32_t link, StorageTransaction* transaction) {
    while (link != 0) {
        const Status status = ReadIndexPage(object, link, &link, transaction);
        if (status != kOk) return status;
    }
    NumberList& list = object->pageList;
    while (!list.Empty() && list.Last() == 0) list.Truncate(list.Count() - 1);
    object->listCount = list.Count();
    return kOk;
}

// Follows the chain of a stream that has no index. Levels rise, which also ends a circle, and
// stay within what the container's pages could hold.
Status ReadChain(FileObject* object, uint32_t link, StorageTransaction* transaction) {
    StorageContext* context = object->context;
    const uint64_t limit = uint64_t{context->totalPages} * object->pagesPerBlock;
    while (link != 0) {
        PinnedPage page(context);
        const Status status =
            LoadOwnPage(object, link, StreamKind(object), &page.page, transaction);
        if (status != kOk) return status;
        const uint32_t level = page.Header()->level;
        if (level < object->pageList.Count() || level >= limit) return Corrupt(context);
        if (!GrowList(object, level + 1)) return kNoMemory;
        object->pageList[level] = link;
        link = page.Header()->nextPage;
    }
    return kOk;
}

// The link of the object's first record of a type, 0 if it has none.
Status RecordLink(FileObject* object, uint16_t type, uint32_t* link,
                  StorageTransaction* transaction) {
    PinnedRecord record(object->context);
    const Status status = FindRecord(object, type, &record, false, transaction);
    *link = status == kOk && record.page != nullptr ? record.Link() : 0;
    return status;
}

Status ReadPageList(FileObject* object, StorageTransaction* transaction) {
    uint32_t stream = 0, index = 0;
    Status status = LoadBlockSettings(object, transaction);
    if (status == kOk) status = RecordLink(object, object->streamType, &stream, transaction);
    if (status != kOk || stream == 0) return status;
    if (object->streamType != kRootDataRecord)
        status = RecordLink(object, kPageListRecord, &index, transaction);
    if (status != kOk) return status;
    return index != 0 ? ReadIndex(object, index, transaction)
                      : ReadChain(object, stream, transaction);
}

// Makes the record of the index and its first page.
Status CreateIndex(FileObject* object, StorageTransaction* transaction) {
    StorageContext* context = object->context;
    if (!object->pageListPages.Reserve(1)) return kNoMemory;
    PinnedRecord record(context);
    Status status = AddRecord(object, kPageListRecord, nullptr, 0, &record, transaction);
    if (status == kRecordExists)
        status = FindRecord(object, kPageListRecord, &record, true, transaction);
    if (status != kOk) return status;
    PinnedPage page(context);
    status = SpillRecord(object, record, &page.page, transaction);
    record.Release();
    if (status == kOk && page.page == nullptr) status = Corrupt(context);
    if (status != kOk) {
        RemoveRecord(object, kPageListRecord, transaction);
        return status;
    }
    object->pageListPages.Add(page.page->number);
    return kOk;
}

Status AddIndexPage(FileObject* object, StorageTransaction* transaction) {
    StorageContext* context = object->context;
    NumberList& index = object->pageListPages;
    if (!index.Reserve(index.Count() + 1)) return kNoMemory;
    PinnedPage last(context), page(context);
    Status status = OpenOwnPage(object, index.Last(), kPageListPage, &last, transaction);
    if (status == kOk) status = AllocatePage(context, kPageListPage, &page.page, transaction);
    if (status != kOk) return status;
    PageHeader* header = page.Header();
    header->prevPage = last.page->number;
    header->fileId = object->fileId;
    header->level = index.Count();
    header->recordType = kPageListRecord;
    last.Header()->nextPage = page.page->number;
    index.Add(page.page->number);
    return kOk;
}

Status DropIndexPage(FileObject* object, StorageTransaction* transaction) {
    NumberList& index = object->pageListPages;
    const uint32_t last = index.Count() - 1;
    PinnedPage before(object->context);
    Status status = OpenOwnPage(object, index[last - 1], kPageListPage, &before, transaction);
    if (status == kOk) status = FreeOwnPage(object, index[last], kPageListPage, transaction);
    if (status != kOk) return status;
    before.Header()->nextPage = 0;
    index.Truncate(last);
    return kOk;
}

Status FitIndex(FileObject* object, StorageTransaction* transaction) {
    const uint32_t entries = EntriesPerIndexPage(object);
    const uint32_t needed = std::max(1u, (object->pageList.Count() + entries - 1) / entries);
    Status status = kOk;
    while (status == kOk && object->pageListPages.Count() < needed)
        status = AddIndexPage(object, transaction);
    while (status == kOk && object->pageListPages.Count() > needed)
        status = DropIndexPage(object, transaction);
    return status;
}

// Writes the entries of [first, last] as far as the index reaches; 0 past the list's end.
Status WriteEntries(FileObject* object, uint32_t first, uint32_t last,
                    StorageTransaction* transaction) {
    StorageContext* context = object->context;
    const uint32_t entries = EntriesPerIndexPage(object);
    const uint64_t reach = uint64_t{object->pageListPages.Count()} * entries;
    const uint64_t end = std::min<uint64_t>(reach, uint64_t{last} + 1);
    PinnedPage page(context);
    for (uint64_t at = first; at < end; ++at) {
        const uint32_t ordinal = static_cast<uint32_t>(at);
        if (page.page == nullptr || ordinal % entries == 0) {
            page.Release();
            const Status status = OpenOwnPage(object, object->pageListPages[ordinal / entries],
                                              kPageListPage, &page, transaction);
            if (status != kOk) return status;
        }
        const uint32_t number = ordinal < object->pageList.Count() ? object->pageList[ordinal] : 0;
        if (number >= context->totalPages) return Corrupt(context);
        Store(page.Payload(), ordinal % entries * sizeof(uint32_t), number);
    }
    return kOk;
}

// Makes the stream pages of [first, last] name their index page.
Status SetListPages(FileObject* object, uint32_t first, uint32_t last,
                    StorageTransaction* transaction) {
    const uint32_t entries = EntriesPerIndexPage(object);
    const bool indexed = !object->pageListPages.Empty();
    const uint64_t end = std::min<uint64_t>(object->pageList.Count(), uint64_t{last} + 1);
    for (uint32_t ordinal = first; ordinal < end; ++ordinal) {
        PinnedPage page(object->context);
        Status status = FetchStreamPage(object, ordinal, &page.page, transaction);
        if (status != kOk) return status;
        const uint32_t listPage = indexed ? object->pageListPages[ordinal / entries] : 0;
        if (page.page == nullptr || page.Header()->listPage == listPage) continue;
        status = MarkPageChanged(object->context, page.page);
        if (status != kOk) return status;
        page.Header()->listPage = listPage;
    }
    return kOk;
}

// Frees the index with its record; the pages of the stream go on naming it.
Status FreePageIndex(FileObject* object, StorageTransaction* transaction) {
    NumberList& index = object->pageListPages;
    if (index.Empty()) return kOk;
    Status status = RemoveRecord(object, kPageListRecord, transaction);
    if (status != kOk) return status;
    while (status == kOk && !index.Empty()) {
        status = FreeOwnPage(object, index.Last(), kPageListPage, transaction);
        if (status == kOk) index.Truncate(index.Count() - 1);
    }
    index.Clear();
    object->listCount = 0;
    return status;
}

// The pages around a place of the chain.
struct Neighbours {
    explicit Neighbours(StorageContext* context) : before(context), after(context) {}

    Status Open(FileObject* object, uint32_t ordinal, StorageTransaction* transaction) {
        const uint32_t previous = PageBefore(object, ordinal);
        if (previous == kNoOrdinal) return Corrupt(object->context);
        const Status status = FetchStreamPage(object, previous, &before.page, transaction);
        return status != kOk ? status : MarkPageChanged(object->context, before.page);
    }
    Status OpenAfter(FileObject* object, uint32_t number, StorageTransaction* transaction) {
        if (number == 0) return kOk;
        return OpenOwnPage(object, number, StreamKind(object), &after, transaction);
    }
    void Join() {
        before.Header()->nextPage = after.page != nullptr ? after.page->number : 0;
        if (after.page != nullptr) after.Header()->prevPage = before.page->number;
    }
    void JoinBy(PinnedPage* between) {
        between->Header()->prevPage = before.page->number;
        between->Header()->nextPage = after.page != nullptr ? after.page->number : 0;
        before.Header()->nextPage = between->page->number;
        if (after.page != nullptr) after.Header()->prevPage = between->page->number;
    }

    PinnedPage before, after;
};

}  // namespace

void DropBlockList(FileObject* object) {
    object->pageList.Reset();
    object->pageListPages.Reset();
    object->listCount = 0;
    object->flags &= ~static_cast<uint32_t>(kPageListComplete);
}

Status LoadBlockList(FileObject* object, StorageTransaction* transaction) {
    if ((object->flags & kPageListComplete) != 0) return kOk;
    const Status status = ReadPageList(object, transaction);
    if (status == kOk)
        object->flags |= kPageListComplete;
    else
        DropBlockList(object);
    return status;
}

Status FetchStreamPage(FileObject* object, uint32_t ordinal, CachePage** page,
                       StorageTransaction* transaction) {
    *page = nullptr;
    Status status = LoadBlockList(object, transaction);
    if (status != kOk || ordinal >= object->pageList.Count()) return status;
    const uint32_t number = object->pageList[ordinal];
    if (number == 0) return kOk;
    status = LoadOwnPage(object, number, StreamKind(object), page, transaction);
    if (status != kOk || HeaderOf((*page)->buffer)->level == ordinal) return status;
    ReleasePage(object->context, *page);
    *page = nullptr;
    return Corrupt(object->context);
}

Status InsertStreamPage(FileObject* object, uint32_t ordinal, StorageTransaction* transaction) {
    StorageContext* context = object->context;
    Status status = LoadBlockList(object, transaction);
    if (status != kOk) return status;
    const uint32_t count = object->pageList.Count();
    Neighbours neighbours(context);
    status = neighbours.Open(object, ordinal, transaction);
    if (status == kOk && ordinal < count)
        status = neighbours.OpenAfter(object, neighbours.before.Header()->nextPage, transaction);
    PinnedPage page(context);
    if (status == kOk && !GrowList(object, std::max(count, ordinal + 1))) status = kNoMemory;
    if (status == kOk) status = AllocatePage(context, StreamKind(object), &page.page, transaction);
    if (status != kOk) {
        object->pageList.Truncate(count);
        return status;
    }
    page.Header()->fileId = object->fileId;
    page.Header()->level = ordinal;
    page.Header()->recordType = object->streamType;
    neighbours.JoinBy(&page);
    object->pageList[ordinal] = page.page->number;
    status = UpdatePageList(object, ordinal, ordinal, transaction);
    if (status == kOk) return kOk;

    neighbours.Join();
    object->pageList[ordinal] = 0;
    object->pageList.Truncate(count);
    WriteEntries(object, ordinal, ordinal, transaction);
    FreePinned(&page);
    return status;
}

// The pages keep their bytes: a page that is dirty when it is freed would be written, and a roll
// back could not give the old bytes back.
Status RemoveStreamPages(FileObject* object, uint32_t first, uint32_t end,
                         StorageTransaction* transaction) {
    NumberList& list = object->pageList;
    const bool toTheEnd = end >= list.Count();
    end = std::min(end, list.Count());
    if (first >= end) return kOk;
    Neighbours neighbours(object->context);
    Status status = neighbours.Open(object, first, transaction);
    bool atLast = true;
    for (uint32_t ordinal = end; status == kOk && ordinal-- > first;) {
        PinnedPage page(object->context);
        status = FetchStreamPage(object, ordinal, &page.page, transaction);
        if (status != kOk || page.page == nullptr) continue;
        if (atLast && !toTheEnd)
            status = neighbours.OpenAfter(object, page.Header()->nextPage, transaction);
        atLast = false;
        if (status == kOk) status = FreePinned(&page);
        if (status == kOk) list[ordinal] = 0;
    }
    if (status == kOk && !atLast) neighbours.Join();
    if (status == kOk && toTheEnd) list.Truncate(first);
    if (status == kOk) status = UpdatePageList(object, first, end - 1, transaction);
    return OrRollBack(status, transaction);
}

Status UpdatePageList(FileObject* object, uint32_t first, uint32_t last,
                      StorageTransaction* transaction) {
    if (object->streamType == kRootDataRecord) return kOk;
    Status status = LoadBlockList(object, transaction);
    if (status != kOk) return status;
    const uint32_t count = object->pageList.Count();
    if (object->pageListPages.Empty()) {
        if (count < kIndexFrom) return kOk;
        status = CreateIndex(object, transaction);
        first = 0;
        last = count - 1;
    } else if (count < kIndexDownTo) {
        status = FreePageIndex(object, transaction);
        return status != kOk || count == 0 ? status
                                           : SetListPages(object, 0, count - 1, transaction);
    }
    if (status == kOk) status = FitIndex(object, transaction);
    // The entries come first: they need only pages of the index, so that a failure on a stream
    // page leaves the index right.
    if (object->listCount > count) last = std::max(last, object->listCount - 1);
    if (status == kOk) status = WriteEntries(object, first, last, transaction);
    if (status == kOk) object->listCount = count;
    if (status == kOk) status = SetListPages(object, first, last, transaction);
    return status;
}

Status FreeStreamPages(FileObject* object, StorageTransaction* transaction) {
    Status status = LoadBlockList(object, transaction);
    if (status == kOk) status = FreePageIndex(object, transaction);
    NumberList& list = object->pageList;
    while (status == kOk && !list.Empty()) {
        PinnedPage page(object->context);
        status = FetchStreamPage(object, list.Count() - 1, &page.page, transaction);
        if (status == kOk && page.page != nullptr) status = FreePinned(&page);
        if (status == kOk) list.Truncate(list.Count() - 1);
    }
    return OrRollBack(status, transaction);
}

}  // namespace storage
