// SPDX-License-Identifier: MIT
// The pages of a stream: their list in memory, their chain and, for long streams, their index on
// disk.
#pragma once

#include "storage/core/PageCache.h"
#include "storage/namespace/Records.h"

namespace storage {

// A stream gets an index when it reaches the first number of pages, and loses it when it falls
// below the second.
inline constexpr uint32_t kIndexFrom = 17;
inline constexpr uint32_t kIndexDownTo = 8;

inline uint16_t StreamKind(const FileObject* object) {
    return static_cast<uint16_t>(object->streamType + kRecordKindBase);
}
inline uint32_t BlockBytes(const FileObject* object) {
    return object->pagesPerBlock * object->context->payloadSize;
}

// Gives the pin back at the end of the scope.
struct PinnedPage {
    explicit PinnedPage(StorageContext* owner) : context(owner) {}
    PinnedPage(const PinnedPage&) = delete;
    PinnedPage& operator=(const PinnedPage&) = delete;
    ~PinnedPage() { Release(); }

    void Release() {
        ReleasePage(context, page);
        page = nullptr;
    }
    PageHeader* Header() const { return HeaderOf(page->buffer); }
    uint8_t* Payload() const { return page->buffer + kPageHeaderSize; }

    StorageContext* context;
    CachePage* page = nullptr;
};
struct PinnedRecord : RecordPlace {
    explicit PinnedRecord(StorageContext* owner) : context(owner) {}
    PinnedRecord(const PinnedRecord&) = delete;
    PinnedRecord& operator=(const PinnedRecord&) = delete;
    ~PinnedRecord() { Release(); }

    void Release() {
        ReleasePage(context, page);
        page = nullptr;
    }

    StorageContext* context;
};

// Reads the numbers of all pages of the stream into object->pageList, once.
Status LoadBlockList(FileObject* object, StorageTransaction* transaction);
// Forgets the list, so that it is read again.
void DropBlockList(FileObject* object);

// The stream page at `ordinal`, pinned; null for a hole or past the end. kCorrupt when the page
// is not what the list says.
Status FetchStreamPage(FileObject* object, uint32_t ordinal, CachePage** page,
                       StorageTransaction* transaction);

// A new zeroed page at `ordinal`, a hole or a place past the end, linked behind the page before.
// All or nothing.
Status InsertStreamPage(FileObject* object, uint32_t ordinal, StorageTransaction* transaction);
// Frees the pages of [first, end) and closes the chain over them. There is a page before `first`.
Status RemoveStreamPages(FileObject* object, uint32_t first, uint32_t end,
                         StorageTransaction* transaction);

// Brings the index on disk in line with the page list, which has changed in [first, last]: makes
// it, lets it go, and sets its entries and the stream pages' references to it.
Status UpdatePageList(FileObject* object, uint32_t first, uint32_t last,
                      StorageTransaction* transaction);
// Frees every page of the stream and its index with the index's record; the list is empty then.
Status FreeStreamPages(FileObject* object, StorageTransaction* transaction);

}  // namespace storage
