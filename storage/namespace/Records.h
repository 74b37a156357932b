// SPDX-License-Identifier: MIT
// Typed records in the HeaderPage chain of an object.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

// A record found: its pinned page and its place in it. The page is released by the caller; null
// when nothing was found.
struct RecordPlace {
    CachePage* page = nullptr;
    uint32_t offset = 0;

    uint8_t* Bytes() const { return page->buffer + offset; }
    uint16_t Size() const { return LoadU16(Bytes(), record::kSize); }
    uint32_t Info() const { return LoadU32(Bytes(), record::kInfo); }
    uint32_t Link() const { return LoadU32(Bytes(), record::kLink); }
    uint8_t* Payload() const { return Bytes() + record::kPayload; }
    uint32_t PayloadSize() const { return Size() - record::kPayload; }
};

// Steps over the records of one page, checked: false at the end or, with *status set to the
// corruption code, at a record that cannot be.
bool NextRecord(StorageContext* context, CachePage* page, uint32_t* offset, Status* status);

// Steps over the records of an object's HeaderPage that is only viewed. It is the only one.
struct RecordWalk {
    const uint8_t* page = nullptr;
    uint32_t end = 0;
    uint32_t at = kRecordsStart;

    // False for no page, another one's, and one of several.
    bool Begin(const PageBytes& found, uint32_t fileId);
    // *record becomes null behind the last one. False at one that cannot be.
    bool Next(const uint8_t** record);
};

// The first record of a type in the object's chain. Nothing found is kOk with a null place, or
// corruption with `mustExist`.
Status FindRecord(FileObject* object, uint16_t type, RecordPlace* place, bool mustExist,
                  StorageTransaction* transaction);
// The same for an object that has no image in memory, by its id and HeaderPage.
Status FindRecordAt(StorageContext* context, uint32_t fileId, uint32_t firstPage, uint16_t type,
                    RecordPlace* place, bool mustExist, StorageTransaction* transaction);
// Appends a record. kRecordExists; kInvalid when it is larger than a page allows. With `place`
// the page is handed out pinned.
Status AddRecord(FileObject* object, uint16_t type, const void* data, uint32_t length,
                 RecordPlace* place, StorageTransaction* transaction);
// Spills movable records of the page, none of type `protectedType`, until `needed` bytes are
// free; *fits tells whether that can be. Records of the page move.
Status MakeRoom(FileObject* object, CachePage* page, uint16_t protectedType, uint32_t needed,
                bool* fits, StorageTransaction* transaction);
// Moves a record's payload to a page of its own; with `newPage` that is handed out pinned.
Status SpillRecord(FileObject* object, const RecordPlace& place, CachePage** newPage,
                   StorageTransaction* transaction);
// Gives a record another payload size and moves those behind it. The new size fits the page.
Status ResizeRecord(StorageContext* context, const RecordPlace& place, uint32_t payload);
Status RemoveRecord(FileObject* object, uint16_t type, StorageTransaction* transaction);

}  // namespace storage
