// SPDX-License-Identifier: MIT
// The container file as it lies on disk; docs/container-format.md tells the same in prose. All
// numbers are little-endian in memory; a container of the other byte order is converted page by
// page as it is read and written (PageIo.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace storage {

inline constexpr uint32_t kMinPageShift = 8;
inline constexpr uint32_t kMaxPageShift = 16;
inline constexpr uint32_t kPageHeaderSize = 32;
inline constexpr uint16_t kSignature = 0x574E;  // "NW" at offset 2 of the first page
inline constexpr uint16_t kSwappedSignature = 0x4E57;

// Page kinds; a map page's kind is its container's page shift.
enum PageKind : uint16_t {
    kFreePage = 0,
    kNamePage = 31,
    kHeaderPage = 32,
    kEntryPage = 33,
    kDataPage = 34,
    kRecordPage = 36,
    kLinkPage = 37,
    kRootDataPage = 40,
    kPageListPage = 43,
    kSuperblockPage = 22350,
    kAnyKind = 65535,
};
// A map slot of 0 or above this counts as free.
inline constexpr uint16_t kLastUsedSlot = 65519;
inline constexpr bool SlotIsFree(uint16_t slot) {
    return slot == 0 || slot > kLastUsedSlot;
}

// Record types; a record of type t that moves to a page of its own makes a page of kind t + 32.
enum RecordType : uint16_t {
    kFileInfoRecord = 0,
    kDirectoryRecord = 1,
    kDataRecord = 2,
    kLinkRecord = 5,
    kBlockSettingsRecord = 6,
    kFindSettingsRecord = 7,
    kRootDataRecord = 8,
    kPageListRecord = 11,
};
inline constexpr uint16_t kRecordKindBase = 32;

enum Attribute : uint32_t {
    kAttrFile = 1,
    kAttrDirectory = 2,
    kAttrInherited = 8,
    kAttrLink = 32,
    kAttrReadOnly = 64,
    kAttrHidden = 0x1000,
};

// The first bytes of every page but map pages and the superblock.
struct PageHeader {
    uint16_t kind;
    uint16_t pendingKind;
    uint32_t pageNumber;
    uint32_t listPage;
    uint32_t prevPage;
    uint32_t nextPage;
    uint32_t fileId;
    uint32_t level;
    uint16_t recordType;
    uint16_t recordInfo;
};
static_assert(sizeof(PageHeader) == kPageHeaderSize);

// The first bytes of a HeaderPage, whose last header word is the parent's id.
struct HeaderPageHeader {
    uint16_t kind;
    uint16_t pendingKind;
    uint32_t pageNumber;
    uint32_t listPage;
    uint32_t prevPage;
    uint32_t nextPage;
    uint32_t fileId;
    uint32_t level;
    uint32_t parentId;
    uint16_t endOffset;
    uint16_t padding;
};
static_assert(sizeof(HeaderPageHeader) == 36);
inline constexpr uint32_t kRecordsStart = 36;
inline constexpr uint32_t kRecordHeaderSize = 12;  // u16 type, u16 size, u32 info, u32 link
inline constexpr uint32_t kFileInfoSize = 48;      // the whole FileInfoRecord
inline constexpr uint32_t kFreshRecordsEnd = 84;   // end offset of an object with that record only

// Offsets within a record.
namespace record {
inline constexpr uint32_t kType = 0;  // u16
inline constexpr uint32_t kSize = 2;  // u16, the whole record
inline constexpr uint32_t kInfo = 4;  // u32
inline constexpr uint32_t kLink = 8;  // u32
inline constexpr uint32_t kPayload = 12;
// FileInfoRecord.
inline constexpr uint32_t kCreated = 16;   // f64
inline constexpr uint32_t kModified = 24;  // f64
inline constexpr uint32_t kAccessed = 32;  // f64
inline constexpr uint32_t kFileSize = 40;  // u64
}  // namespace record

inline constexpr uint32_t kEntrySize = 64;
inline constexpr uint32_t kEntryNameUnits = 22;
struct DirectoryEntry {
    uint32_t fileId;  // 0 marks a free entry
    uint32_t headerPage;
    uint32_t attributes;
    uint32_t nameLength;  // in units
    uint32_t namePage;    // units from the 23rd on, 0 if none
    uint16_t name[kEntryNameUnits];
};
static_assert(sizeof(DirectoryEntry) == kEntrySize);

inline constexpr uint32_t kSuperblockNumber = 1;
inline constexpr uint32_t kRootHeaderNumber = 2;
inline constexpr uint32_t kRootFileId = 1;
inline constexpr uint32_t kBannerUnits = 62;
inline constexpr uint32_t kFlagCorrupted = 1;
inline constexpr uint32_t kFlagChainedLog = 2;
struct Superblock {
    uint16_t kind;
    uint16_t reserved2;
    uint32_t pageNumber;
    uint32_t reserved8;
    uint16_t logPending;
    uint16_t formatA;
    uint16_t formatB;
    uint16_t banner[kBannerUnits];
    uint16_t padding142;
    uint32_t engineVersion;
    uint32_t engineVersionMin;
    uint32_t lastFileId;
    uint32_t transactionCounter;
    uint16_t layoutA;
    uint16_t layoutB;
    uint32_t layoutC;
    uint32_t layoutD;
    DirectoryEntry rootEntry;
    uint16_t inFileLog;
    uint16_t changing;  // not 0 while a change is being written, and after a writer died at it
    uint32_t maxPages;
    uint32_t flags;
    uint32_t logChainHead;
    uint32_t reservedSize;
};
static_assert(sizeof(Superblock) == 256);
static_assert(offsetof(Superblock, engineVersion) == 144);
static_assert(offsetof(Superblock, rootEntry) == 172);
static_assert(offsetof(Superblock, flags) == 244);

// Numbers at any offset of a page, aligned or not.
template <class T>
T Load(const void* page, size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const uint8_t*>(page) + offset, sizeof value);
    return value;
}
template <class T>
void Store(void* page, size_t offset, T value) {
    std::memcpy(static_cast<uint8_t*>(page) + offset, &value, sizeof value);
}
inline uint16_t LoadU16(const void* page, size_t offset) {
    return Load<uint16_t>(page, offset);
}
inline uint32_t LoadU32(const void* page, size_t offset) {
    return Load<uint32_t>(page, offset);
}
inline uint64_t LoadU64(const void* page, size_t offset) {
    return Load<uint64_t>(page, offset);
}

inline PageHeader* HeaderOf(uint8_t* page) {
    return reinterpret_cast<PageHeader*>(page);
}
inline HeaderPageHeader* HeaderPageOf(uint8_t* page) {
    return reinterpret_cast<HeaderPageHeader*>(page);
}

}  // namespace storage
