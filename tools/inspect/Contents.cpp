// SPDX-License-Identifier: MIT
#include "tools/inspect/Contents.h"

#include <algorithm>

#include "storage/core/Format.h"
#include "tools/inspect/Fields.h"

namespace fbr {
namespace {

using storage::DirectoryEntry;

constexpr uint64_t kValueHead = 8;  // type and size in front of a value's data

struct Directory {
    uint32_t headerPage;
    uint32_t depth;
};

class Walk {
  public:
    explicit Walk(const Image& image) : image_(image), entered_(image.PageCount()) {}

    Contents Run();

  private:
    bool Enter(uint32_t number, uint16_t kind);
    void WalkDirectory(const Directory& directory);
    void WalkRecords(const Directory& directory, uint32_t* entryPages);
    void AddEntries(const uint8_t* entries, uint32_t count, uint32_t depth);
    void AddEntry(const DirectoryEntry& entry, uint32_t depth);
    void AddValue();
    uint32_t Next() const {
        return storage::LoadU32(page_.data(), offsetof(storage::PageHeader, nextPage));
    }

    const Image& image_;
    std::vector<bool> entered_;
    std::vector<Directory> waiting_;
    PageBytes page_;  // the one entered last
    Contents contents_;
};

// Reads the page if it is of that kind and was never entered before.
bool Walk::Enter(uint32_t number, uint16_t kind) {
    const bool possible = number > storage::kSuperblockNumber && number < image_.PageCount() &&
                          !image_.IsMapPage(number) && !entered_[number];
    if (possible) page_ = image_.Page(number);
    if (!possible || storage::LoadU16(page_.data(), 0) != kind) {
        ++contents_.badReferences;
        return false;
    }
    entered_[number] = true;
    return true;
}

void Walk::AddValue() {
    uint32_t end = 0;
    uint64_t size = 0;
    for (const RecordView& record : RecordsOf(page_, &end)) {
        if (record.type != storage::kFileInfoRecord || record.size < storage::kFileInfoSize)
            continue;
        size = storage::LoadU64(page_.data(), record.offset + storage::record::kFileSize);
        break;
    }
    const uint64_t data = size - std::min(size, kValueHead);
    ++contents_.values;
    contents_.valueBytes += data;
    contents_.largestValue = std::max(contents_.largestValue, data);
}

void Walk::AddEntry(const DirectoryEntry& entry, uint32_t depth) {
    if ((entry.attributes & storage::kAttrDirectory) != 0) {
        waiting_.push_back({entry.headerPage, depth + 1});
    } else if (Enter(entry.headerPage, storage::kHeaderPage)) {
        if ((entry.attributes & storage::kAttrLink) != 0) {
            ++contents_.links;
        } else {
            AddValue();
        }
    }
}

void Walk::AddEntries(const uint8_t* entries, uint32_t count, uint32_t depth) {
    // A copy, for entering a value replaces the page.
    std::vector<DirectoryEntry> copied(count);
    if (count != 0) std::memcpy(copied.data(), entries, count * sizeof(DirectoryEntry));
    for (const DirectoryEntry& entry : copied) {
        if (entry.fileId != 0) AddEntry(entry, depth);
    }
}

// The records of the page entered last.
void Walk::WalkRecords(const Directory& directory, uint32_t* entryPages) {
    const PageBytes page = page_;
    uint32_t end = 0;
    for (const RecordView& record : RecordsOf(page, &end)) {
        if (record.type != storage::kDirectoryRecord) continue;
        if (record.link != 0) {
            *entryPages = record.link;
        } else {
            AddEntries(page.data() + record.offset + storage::kRecordHeaderSize,
                       (record.size - storage::kRecordHeaderSize) / storage::kEntrySize,
                       directory.depth);
        }
    }
}

void Walk::WalkDirectory(const Directory& directory) {
    uint32_t entryPages = 0;
    for (uint32_t page = directory.headerPage; Enter(page, storage::kHeaderPage);) {
        if (page == directory.headerPage) {
            ++contents_.keys;
            contents_.depth = std::max(contents_.depth, directory.depth);
        }
        page = Next();
        WalkRecords(directory, &entryPages);
        if (page == 0) break;
    }
    while (entryPages != 0 && Enter(entryPages, storage::kEntryPage)) {
        entryPages = Next();
        AddEntries(page_.data() + storage::kPageHeaderSize,
                   (image_.PageSize() - storage::kPageHeaderSize) / storage::kEntrySize,
                   directory.depth);
    }
}

Contents Walk::Run() {
    if (image_.PageCount() <= storage::kSuperblockNumber) return contents_;
    const PageBytes super = image_.Page(storage::kSuperblockNumber);
    const auto root =
        storage::Load<DirectoryEntry>(super.data(), offsetof(storage::Superblock, rootEntry));
    waiting_.push_back({root.headerPage, 0});
    while (!waiting_.empty()) {
        const Directory directory = waiting_.back();
        waiting_.pop_back();
        WalkDirectory(directory);
    }
    return contents_;
}

}  // namespace

Contents CountContents(const Image& image) {
    return Walk(image).Run();
}

}  // namespace fbr
