// SPDX-License-Identifier: MIT
// A file's whole content at once: one look at its directory, its pages written as they will be.
#include <algorithm>
#include <utility>

#include "platform/Prefetch.h"
#include "storage/core/Dates.h"
#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/core/SparePages.h"
#include "storage/namespace/AddEntry.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/EntryRecords.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Operations.h"
#include "storage/namespace/Purge.h"
#include "storage/namespace/Records.h"
#include "storage/namespace/Stream.h"
#include "storage/namespace/StreamPages.h"

namespace storage {

namespace {

using platform::WStringView;

// The content, and how it is to lie: in a record, filled with zeros to a multiple of 32, or in
// pages of its own.
struct Put {
    StorageContext* context;
    StorageTransaction* transaction;
    const FileContent& content;
    uint32_t size;
    uint32_t room;

    Put(StorageContext* container, const FileContent& what)
        : context(container),
          transaction(nullptr),
          content(what),
          size(what.headBytes + what.bytes),
          room((size + 31) & ~31u) {}

    bool FitsInPages() const { return size <= (kIndexFrom - 1) * context->payloadSize; }
    void Copy(uint32_t from, uint32_t count, uint8_t* to) const {
        const uint32_t inHead = from < content.headBytes ? content.headBytes - from : 0;
        const uint32_t first = std::min(count, inHead);
        if (first != 0) std::memcpy(to, static_cast<const uint8_t*>(content.head) + from, first);
        if (count == first) return;
        const uint32_t begin = from + first - content.headBytes;
        std::memcpy(to + first, static_cast<const uint8_t*>(content.data) + begin, count - first);
    }
    void FillRecord(uint8_t* payload) const {
        Copy(0, size, payload);
        std::memset(payload + size, 0, room - size);
    }
    Status MakePages(uint32_t fileId, uint32_t headerPage, uint32_t* first) const;
};

Status Put::MakePages(uint32_t fileId, uint32_t headerPage, uint32_t* first) const {
    const uint32_t payload = context->payloadSize;
    PreferRunForData(context, (size + payload - 1) / payload);
    PinnedPage before(context);
    for (uint32_t done = 0, level = 0; done < size; ++level) {
        PinnedPage page(context);
        const Status status = AllocatePage(context, kDataPage, &page.page, transaction);
        if (status != kOk) return status;
        PageHeader* header = page.Header();
        header->prevPage = level == 0 ? headerPage : before.page->number;
        header->fileId = fileId;
        header->level = level;
        header->recordType = kDataRecord;
        if (level == 0)
            *first = page.page->number;
        else
            before.Header()->nextPage = page.page->number;
        const uint32_t count = std::min(payload, size - done);
        Copy(done, count, page.Payload());
        done += count;
        std::swap(before.page, page.page);
    }
    return kOk;
}

// Nobody has the file open, and what memory knows of its stream can be forgotten.
bool IsAtRest(const DirEntry* entry) {
    const FileObject* object = entry->object;
    return (entry->attributes & kAttrReadOnly) == 0 &&
           (object == nullptr || (object->handles.Empty() && object->blocks.Empty() &&
                                  object->denyReadCount == 0 && object->denyWriteCount == 0));
}

// The records of a file that has one page and a plain stream without an index. kNotPlain for any
// other.
Status FindPlain(StorageContext* context, CachePage* page, RecordPlace* info, RecordPlace* stream) {
    if (HeaderOf(page->buffer)->nextPage != 0) return kNotPlain;
    Status status = kOk;
    uint32_t offset = 0;
    while (NextRecord(context, page, &offset, &status)) {
        const RecordPlace here{page, offset};
        const uint16_t type = LoadU16(here.Bytes(), record::kType);
        if (type == kFileInfoRecord && info->page == nullptr && here.Size() >= kFileInfoSize)
            *info = here;
        else if (type == kDataRecord && stream->page == nullptr && info->page != nullptr)
            *stream = here;
        else
            return kNotPlain;
    }
    if (status != kOk) return status;
    return stream->page == nullptr || stream->Info() != 0 ? kNotPlain : kOk;
}

// What is larger than its page gets new ones, and the old ones are given up: so one page alone is
// written in its place.
Status PutIntoPage(const Put& put, CachePage* page, uint32_t fileId) {
    StorageContext* context = put.context;
    RecordPlace info, stream;
    Status status = FindPlain(context, page, &info, &stream);
    if (status != kOk) return status;
    const uint32_t others = HeaderPageOf(page->buffer)->endOffset - stream.PayloadSize();
    const bool inlined = others + put.room < std::min<uint32_t>(context->pageSize, UINT16_MAX);
    if (!inlined && !put.FitsInPages()) return kNotPlain;
    status = MarkPageChanged(context, page);
    uint32_t link = 0;
    if (status == kOk && !inlined) status = put.MakePages(fileId, page->number, &link);
    if (status == kOk)
        status = FreeChainUnread(context, stream.Link(), kDataPage, fileId,
                                 PagesOf(context, Load<uint64_t>(info.Bytes(), record::kFileSize)),
                                 put.transaction);
    const uint32_t payload = inlined ? put.room : 0;
    if (status == kOk && stream.PayloadSize() != payload)
        status = ResizeRecord(context, stream, payload);
    if (status != kOk) return status;
    Store<uint32_t>(stream.Bytes(), record::kInfo, 0);
    Store<uint32_t>(stream.Bytes(), record::kLink, link);
    if (inlined) put.FillRecord(stream.Payload());
    const double now = CurrentDate();
    Store(info.Bytes(), record::kModified, now);
    Store(info.Bytes(), record::kAccessed, now);
    Store<uint64_t>(info.Bytes(), record::kFileSize, put.size);
    return kOk;
}

Status PutIntoExisting(const Put& put, const DirEntry* entry) {
    if ((entry->attributes & kAttrFile) == 0) return kExists;
    if (!IsAtRest(entry)) return kNotPlain;
    CachePage* page = nullptr;
    Status status = GetPageChecked(put.context, entry->headerPage, kHeaderPage, &page,
                                   entry->fileId, put.transaction);
    if (status != kOk) return status;
    status = PutIntoPage(put, page, entry->fileId);
    ReleasePage(put.context, page);
    if (status == kOk && entry->object != nullptr) {
        DropStreamState(entry->object);
        entry->object->flags &= ~kStreamReady;
    }
    return status;
}

// A new file in a directory that has one page and hands nothing down.
struct NewFile {
    const Put& put;
    FileObject* directory;
    WStringView name;
    DirectoryEntry bytes{};
    uint32_t number = 0;     // of the entry
    uint32_t entryPage = 0;  // that has it
    double now = CurrentDate();

    Status Make(uint32_t position);
    Status TouchDirectory();
    Status MakeHeaderPage();
    Status MakeNamePages();
    Status List(uint32_t position);
};

Status NewFile::TouchDirectory() {
    StorageContext* context = put.context;
    PinnedPage page(context);
    Status status = GetPageChecked(context, directory->headerPage, kHeaderPage, &page.page,
                                   directory->fileId, put.transaction);
    if (status != kOk) return status;
    if (page.Header()->nextPage != 0) return kNotPlain;
    uint8_t* info = nullptr;
    uint32_t offset = 0;
    while (NextRecord(context, page.page, &offset, &status)) {
        const RecordPlace here{page.page, offset};
        const uint16_t type = LoadU16(here.Bytes(), record::kType);
        if (type == kBlockSettingsRecord) return kNotPlain;
        if (type == kFileInfoRecord && info == nullptr && here.Size() >= kFileInfoSize)
            info = here.Bytes();
    }
    if (status != kOk || info == nullptr) return status != kOk ? status : Status{kNotPlain};
    // Times tell milliseconds, and many changes come in one.
    if (Load<double>(info, record::kModified) == now &&
        Load<double>(info, record::kAccessed) == now)
        return kOk;
    status = MarkPageTouched(context, page.page);
    if (status != kOk) return status;
    Store(info, record::kModified, now);
    Store(info, record::kAccessed, now);
    return kOk;
}

Status NewFile::MakeHeaderPage() {
    StorageContext* context = put.context;
    PinnedPage page(context);
    Status status = AllocatePage(context, kHeaderPage, &page.page, put.transaction, entryPage);
    if (status != kOk) return status;
    bytes.headerPage = page.page->number;
    uint8_t* buffer = page.page->buffer;
    HeaderPageHeader* header = HeaderPageOf(buffer);
    header->prevPage = entryPage;
    header->fileId = bytes.fileId;
    header->parentId = directory->fileId;
    uint8_t* info = buffer + kRecordsStart;
    Store<uint16_t>(info, record::kType, kFileInfoRecord);
    Store<uint16_t>(info, record::kSize, kFileInfoSize);
    Store(info, record::kCreated, now);
    Store(info, record::kModified, now);
    Store(info, record::kAccessed, now);
    Store<uint64_t>(info, record::kFileSize, put.size);
    uint8_t* stream = buffer + kFreshRecordsEnd;
    const bool inlined = kFreshRecordsEnd + kRecordHeaderSize + put.room < context->pageSize;
    const uint32_t payload = inlined ? put.room : 0;
    uint32_t link = 0;
    if (inlined)
        put.FillRecord(stream + record::kPayload);
    else
        status = put.MakePages(bytes.fileId, bytes.headerPage, &link);
    Store<uint16_t>(stream, record::kType, kDataRecord);
    Store<uint16_t>(stream, record::kSize, static_cast<uint16_t>(kRecordHeaderSize + payload));
    Store<uint32_t>(stream, record::kLink, link);
    header->endOffset = static_cast<uint16_t>(kFreshRecordsEnd + kRecordHeaderSize + payload);
    return status;
}

// The units from the 23rd on.
Status NewFile::MakeNamePages() {
    StorageContext* context = put.context;
    const size_t capacity = UnitsPerNamePage(context);
    PinnedPage before(context);
    for (size_t done = kEntryNameUnits; done < name.size(); done += capacity) {
        PinnedPage page(context);
        const Status status = AllocatePage(context, kNamePage, &page.page, put.transaction);
        if (status != kOk) return status;
        const bool first = before.page == nullptr;
        page.Header()->prevPage = first ? entryPage : before.page->number;
        page.Header()->fileId = bytes.fileId;
        page.Header()->level = first ? 0 : before.Header()->level + 1;
        (first ? bytes.namePage : before.Header()->nextPage) = page.page->number;
        const WStringView units = name.substr(done, capacity);
        std::memcpy(page.Payload(), units.data(), units.size() * sizeof(WChar));
        std::swap(before.page, page.page);
    }
    return kOk;
}

Status NewFile::List(uint32_t position) {
    if (!directory->children.ReserveOne()) return kNoMemory;
    DirEntry* entry = NewDirEntry(put.context->objects, &directory->records,
                                  directory->children.Count() < 64 ? 8 : 64);
    if (entry == nullptr) return kNoMemory;
    const uint32_t units = static_cast<uint32_t>(name.size());
    std::memcpy(entry->shortName, bytes.name, sizeof entry->shortName);
    if (units > kEntryNameUnits) {
        auto* text = static_cast<WChar*>(platform::HeapAllocate(units * sizeof(WChar)));
        if (text == nullptr) {
            DestroyDirEntry(entry);
            return kNoMemory;
        }
        std::memcpy(text, name.data(), units * sizeof(WChar));
        SetLongName(entry, text, units);
    }
    entry->nameUnits = entry->nameLength = units;
    entry->fileId = bytes.fileId;
    entry->attributes = bytes.attributes;
    entry->entry = number;
    entry->headerPage = bytes.headerPage;
    entry->flags |= kNameComplete | kEntryListed;
    if (!directory->children.Insert(position, entry)) {
        DestroyDirEntry(entry);
        return kNoMemory;
    }
    ListChanged(directory);
    return kOk;
}

Status NewFile::Make(uint32_t position) {
    if (!CheckName(name) || name.empty()) return kBadName;
    StorageContext* context = put.context;
    const bool inlined = kFreshRecordsEnd + kRecordHeaderSize + put.room < context->pageSize;
    if ((!inlined && !put.FitsInPages()) || name.size() > UINT16_MAX) return kNotPlain;
    Status status = TouchDirectory();
    if (status == kOk) status = JoinTransaction(put.transaction, directory);
    if (status == kOk) status = TakeFreeEntry(directory, &number, &entryPage, put.transaction);
    if (status == kOk) status = NewFileId(context, &bytes.fileId);
    if (status == kOk) status = MakeHeaderPage();
    if (status == kOk) status = MakeNamePages();
    if (status != kOk) return status;
    bytes.attributes = (directory->entry->attributes & kAttrInherited) | kAttrFile;
    bytes.nameLength = static_cast<uint32_t>(name.size());
    std::memcpy(bytes.name, name.data(),
                std::min<size_t>(name.size(), kEntryNameUnits) * sizeof(WChar));
    status = WriteDirEntry(directory, bytes, number, put.transaction);
    return status == kOk ? List(position) : status;
}

// Nothing stands before a name whose first unit is no letter but names that begin with a lesser
// one.
bool MayHave(const FileObject* directory, WStringView name) {
    return !name.empty() && !directory->children.Empty() &&
           directory->children[0]->nameUnits != 0 && directory->children[0]->name[0] <= name[0];
}

Status PutInto(FileObject* directory, WStringView name, const Put& put, WStringView aside,
               bool* hasAside) {
    bool found = false;
    uint32_t position = 0;
    if (!directory->children.Empty())  // what MayHave looks at
        platform::Prefetch(directory->children[0], sizeof(DirEntry));
    Status status = FindEntry(directory, name, &found, &position, put.transaction);
    if (status == kOk && MayHave(directory, aside)) {
        status = FindEntry(directory, aside, hasAside, &position, put.transaction);
        if (status == kOk) status = FindEntry(directory, name, &found, &position, put.transaction);
    }
    if (status != kOk) return status;
    if (found) return PutIntoExisting(put, directory->children[position]);
    return NewFile{put, directory, name}.Make(position);
}

}  // namespace

Status PutFile(FileObject* directory, WStringView name, const FileContent& content,
               WStringView aside, bool* hasAside) {
    *hasAside = false;
    StorageContext* context = directory->context;
    if (!context->active) return kNotOpen;
    if (!context->MayChange() || HasInlineEntries(directory) ||
        uint64_t{content.headBytes} + content.bytes > kMostPutBytes)
        return kNotPlain;
    Put put(context, content);
    Status status = BeginTransaction(context, &put.transaction, TransactionMode::Write);
    if (status != kOk) return status;
    status = PutInto(directory, name, put, aside, hasAside);
    if (status == kOk) return CommitTransaction(context, put.transaction);
    RollbackTransaction(context, put.transaction);
    return status;
}

}  // namespace storage
