// A small file's whole content at once: one look at its directory, one page.
#include <algorithm>

#include "storage/core/Dates.h"
#include "storage/core/PageCache.h"
#include "storage/namespace/AddEntry.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Operations.h"
#include "storage/namespace/ParentOperation.h"
#include "storage/namespace/Records.h"
#include "storage/namespace/Stream.h"
#include "storage/namespace/StreamInfo.h"

namespace storage {

namespace {

// As it stands in a record: filled with zeros to a multiple of 32.
struct Padded {
    uint8_t bytes[kMostPutBytes];
    uint32_t size;
    uint32_t room;

    explicit Padded(const FileContent& content)
        : size(content.headBytes + content.bytes), room((size + 31) & ~31u) {
        std::memcpy(bytes, content.head, content.headBytes);
        if (content.bytes != 0) std::memcpy(bytes + content.headBytes, content.data, content.bytes);
        std::memset(bytes + size, 0, room - size);
    }
};

// Nobody has the file open, and what memory knows of its stream can be forgotten.
bool IsAtRest(const DirEntry* entry) {
    const FileObject* object = entry->object;
    return (entry->attributes & kAttrReadOnly) == 0 &&
           (object == nullptr || (object->handles.Empty() && object->blocks.Empty() &&
                                  object->denyReadCount == 0 && object->denyWriteCount == 0));
}

// The records of a file that has one page and its stream in it, plain. kNotPlain for any other.
Status FindPlain(StorageContext* context, CachePage* page, uint32_t room, RecordPlace* info,
                 RecordPlace* stream) {
    if (HeaderOf(page->buffer)->nextPage != 0) return kNotPlain;
    Status status = kOk;
    uint32_t offset = 0;
    while (NextRecord(context, page, &offset, &status)) {
        const RecordPlace here{page, offset};
        const uint16_t type = LoadU16(here.Bytes(), record::kType);
        if (type == kFileInfoRecord && info->page == nullptr && here.Size() >= kFileInfoSize)
            *info = here;
        else if (type == kDataRecord && stream->page == nullptr)
            *stream = here;
        else
            return kNotPlain;
    }
    if (status != kOk) return status;
    if (info->page == nullptr || stream->page == nullptr || stream->Link() != 0 ||
        stream->Info() != 0)
        return kNotPlain;
    const uint32_t others = HeaderPageOf(page->buffer)->endOffset - stream->PayloadSize();
    return others + room < std::min<uint32_t>(context->pageSize, UINT16_MAX) ? kOk : kNotPlain;
}

Status PutIntoPage(StorageContext* context, CachePage* page, const Padded& content) {
    RecordPlace info, stream;
    Status status = FindPlain(context, page, content.room, &info, &stream);
    if (status == kOk) status = MarkPageChanged(context, page);
    if (status == kOk && stream.PayloadSize() != content.room)
        status = ResizeRecord(context, stream, content.room);
    if (status != kOk) return status;
    Store<uint32_t>(stream.Bytes(), record::kInfo, 0);
    std::memcpy(stream.Payload(), content.bytes, content.room);
    const double now = CurrentDate();
    Store(info.Bytes(), record::kModified, now);
    Store(info.Bytes(), record::kAccessed, now);
    Store<uint64_t>(info.Bytes(), record::kFileSize, content.size);
    return kOk;
}

Status PutIntoExisting(StorageContext* context, const DirEntry* entry, const Padded& content,
                       StorageTransaction* transaction) {
    if ((entry->attributes & kAttrFile) == 0) return kExists;
    if (!IsAtRest(entry)) return kNotPlain;
    CachePage* page = nullptr;
    Status status = GetPageChecked(context, entry->headerPage, kHeaderPage, &page, true, false,
                                   entry->fileId, transaction);
    if (status != kOk) return status;
    status = PutIntoPage(context, page, content);
    ReleasePage(context, page);
    if (status == kOk && entry->object != nullptr) DropStreamState(entry->object);
    return status;
}

Status PutIntoNew(ParentOperation* operation, const Padded& content) {
    StorageContext* context = operation->context;
    if (kFreshRecordsEnd + kRecordHeaderSize + content.room >= context->pageSize) return kNotPlain;
    const NewEntry wanted{operation->parent.lastName, kAttrFile, false, true};
    FileObject* object = nullptr;
    bool created = false;
    Status status =
        AddDirEntry(operation->parent.object, wanted, &object, &created, operation->transaction);
    if (status != kOk) return status;
    PinnedRecord stream(context);
    status = AddRecord(object, object->streamType, content.bytes, content.room, &stream,
                       operation->transaction);
    if (status == kOk) {
        Store<uint32_t>(stream.Bytes(), record::kInfo, 0);
        status = WriteSize(object, content.size, false, operation->transaction);
    }
    --object->references;  // settles with the transaction
    return status;
}

Status Put(ParentOperation* operation, const Padded& content, platform::WStringView aside,
           bool* hasAside) {
    FileObject* directory = operation->parent.object;
    StorageTransaction* transaction = operation->transaction;
    bool found = false;
    uint32_t position = 0;
    Status status = LoadDirectory(directory, transaction);
    if (status == kOk && !aside.empty())
        status = FindEntry(directory, aside, hasAside, &position, transaction);
    if (status == kOk)
        status = FindEntry(directory, operation->parent.lastName, &found, &position, transaction);
    if (status != kOk) return status;
    return found ? PutIntoExisting(operation->context, directory->children[position], content,
                                   transaction)
                 : PutIntoNew(operation, content);
}

}  // namespace

Status PutFileAt(StorageContext* context, const WChar* path, const FileContent& content,
                 platform::WStringView aside, bool* hasAside) {
    *hasAside = false;
    if (!context->active) return kNotOpen;
    if (!context->MayChange() || uint64_t{content.headBytes} + content.bytes > kMostPutBytes - 32)
        return kNotPlain;
    const Padded padded(content);
    EvictIdleObjects(context);
    ParentOperation operation(context);
    Status status = operation.Begin(path, true);
    if (status == kOk) status = Put(&operation, padded, aside, hasAside);
    return operation.End(status);
}

}  // namespace storage
