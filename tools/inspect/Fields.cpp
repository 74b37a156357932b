// SPDX-License-Identifier: MIT
#include "tools/inspect/Fields.h"

#include <fmt/format.h>

#include <chrono>
#include <cmath>

#include "storage/core/Format.h"
#include "tools/format/Text.h"
#include "tools/inspect/PageMap.h"

namespace fbr {
namespace {

using storage::DirectoryEntry;
using storage::HeaderPageHeader;
using storage::PageHeader;
using storage::Superblock;

constexpr Field kPageHeader[] = {
    {"kind", offsetof(PageHeader, kind), 2, Show::kKind},
    {"pendingKind", offsetof(PageHeader, pendingKind), 2, Show::kKind},
    {"pageNumber", offsetof(PageHeader, pageNumber), 4},
    {"listPage", offsetof(PageHeader, listPage), 4},
    {"prevPage", offsetof(PageHeader, prevPage), 4},
    {"nextPage", offsetof(PageHeader, nextPage), 4},
    {"fileId", offsetof(PageHeader, fileId), 4},
    {"level", offsetof(PageHeader, level), 4},
};

constexpr Field kHeaderPageEnd[] = {
    {"parentId", offsetof(HeaderPageHeader, parentId), 4},
    {"endOffset", offsetof(HeaderPageHeader, endOffset), 2},
    {"padding", offsetof(HeaderPageHeader, padding), 2},
};
constexpr Field kOtherPageEnd[] = {
    {"recordType", offsetof(PageHeader, recordType), 2, Show::kMovedRecord},
    {"recordInfo", offsetof(PageHeader, recordInfo), 2},
};

constexpr Field kEntry[] = {
    {"fileId", offsetof(DirectoryEntry, fileId), 4},
    {"headerPage", offsetof(DirectoryEntry, headerPage), 4},
    {"attributes", offsetof(DirectoryEntry, attributes), 4, Show::kAttributes},
    {"nameLength", offsetof(DirectoryEntry, nameLength), 4},
    {"namePage", offsetof(DirectoryEntry, namePage), 4},
    {"name", offsetof(DirectoryEntry, name), sizeof DirectoryEntry::name, Show::kText},
};

constexpr uint16_t kRoot = offsetof(Superblock, rootEntry);
constexpr Field kSuperblock[] = {
    {"kind", offsetof(Superblock, kind), 2, Show::kKind},
    {"reserved2", offsetof(Superblock, reserved2), 2},
    {"pageNumber", offsetof(Superblock, pageNumber), 4},
    {"reserved8", offsetof(Superblock, reserved8), 4},
    {"logPending", offsetof(Superblock, logPending), 2},
    {"formatA", offsetof(Superblock, formatA), 2},
    {"formatB", offsetof(Superblock, formatB), 2},
    {"banner", offsetof(Superblock, banner), sizeof Superblock::banner, Show::kText},
    {"padding142", offsetof(Superblock, padding142), 2},
    {"engineVersion", offsetof(Superblock, engineVersion), 4, Show::kHex},
    {"engineVersionMin", offsetof(Superblock, engineVersionMin), 4, Show::kHex},
    {"lastFileId", offsetof(Superblock, lastFileId), 4},
    {"transactionCounter", offsetof(Superblock, transactionCounter), 4},
    {"layoutA", offsetof(Superblock, layoutA), 2},
    {"layoutB", offsetof(Superblock, layoutB), 2},
    {"layoutC", offsetof(Superblock, layoutC), 4},
    {"layoutD", offsetof(Superblock, layoutD), 4},
    {"rootEntry.fileId", kRoot + offsetof(DirectoryEntry, fileId), 4},
    {"rootEntry.headerPage", kRoot + offsetof(DirectoryEntry, headerPage), 4},
    {"rootEntry.attributes", kRoot + offsetof(DirectoryEntry, attributes), 4, Show::kAttributes},
    {"rootEntry.nameLength", kRoot + offsetof(DirectoryEntry, nameLength), 4},
    {"rootEntry.namePage", kRoot + offsetof(DirectoryEntry, namePage), 4},
    {"rootEntry.name", kRoot + offsetof(DirectoryEntry, name), sizeof DirectoryEntry::name,
     Show::kText},
    {"inFileLog", offsetof(Superblock, inFileLog), 2},
    {"changing", offsetof(Superblock, changing), 2},
    {"maxPages", offsetof(Superblock, maxPages), 4},
    {"flags", offsetof(Superblock, flags), 4, Show::kFlags},
    {"logChainHead", offsetof(Superblock, logChainHead), 4},
    {"reservedSize", offsetof(Superblock, reservedSize), 4},
};

constexpr Field kRecord[] = {
    {"type", storage::record::kType, 2, Show::kRecordType},
    {"size", storage::record::kSize, 2},
    {"info", storage::record::kInfo, 4},
    {"link", storage::record::kLink, 4},
};
constexpr Field kFileInfo[] = {
    {"created", storage::record::kCreated, 8, Show::kDate},
    {"modified", storage::record::kModified, 8, Show::kDate},
    {"accessed", storage::record::kAccessed, 8, Show::kDate},
    {"fileSize", storage::record::kFileSize, 8},
};
constexpr Field kBlockSettings[] = {
    {"method", storage::record::kPayload, 4, Show::kMethod},
    {"level", storage::record::kPayload + 4, 4},
    {"pagesPerBlock", storage::record::kPayload + 8, 2},
};
constexpr Field kFindSettings[] = {
    {"searchesOff", storage::record::kPayload, 4},
};

struct Bit {
    uint64_t bit;
    const char* name;
};
constexpr Bit kAttributeBits[] = {
    {storage::kAttrFile, "file"},
    {storage::kAttrDirectory, "directory"},
    {storage::kAttrInherited, "inherited"},
    {storage::kAttrLink, "link"},
    {storage::kAttrReadOnly, "write-protected"},
    {storage::kAttrHidden, "left out of searches"},
};
constexpr Bit kFlagBits[] = {
    {storage::kFlagCorrupted, "corrupted"},
    {storage::kFlagChainedLog, "logs are chained"},
};

std::string NamesOf(std::span<const Bit> bits, uint64_t number) {
    std::string names;
    for (const Bit& bit : bits) {
        if ((number & bit.bit) == 0) continue;
        names += names.empty() ? "" : ", ";
        names += bit.name;
    }
    return names;
}

// Dates outside the years that a person means stay numbers.
Shown ShowDate(uint64_t bits) {
    const auto date = storage::Load<double>(&bits, 0);
    Shown shown{fmt::format("{}", date), ""};
    if (!(date >= 0 && date < 3'000'000)) return shown;
    using namespace std::chrono;
    const auto moment = sys_days(year(1899) / December / 30) +
                        milliseconds(static_cast<int64_t>(std::llround(date * 86'400'000)));
    const auto day = floor<days>(moment);
    const year_month_day calendar(day);
    const hh_mm_ss time(moment - day);
    shown.meaning =
        fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:03} UTC",
                    static_cast<int>(calendar.year()), static_cast<unsigned>(calendar.month()),
                    static_cast<unsigned>(calendar.day()), time.hours().count(),
                    time.minutes().count(), time.seconds().count(), time.subseconds().count());
    return shown;
}

const char* MethodName(uint64_t method) {
    if (method == 0) return "plain";
    if (method == 3) return "external";
    return method == 4 ? "run lengths" : "unknown";
}

std::string KindName(uint64_t number) {
    const auto kind = static_cast<uint16_t>(number);
    if (kind >= storage::kMinPageShift && kind <= storage::kMaxPageShift) {
        return LookOf(Use::kMap).name;
    }
    return LookOf(UseOfKind(kind)).name;
}

}  // namespace

const std::span<const Field> kPageHeaderFields = kPageHeader;
const std::span<const Field> kSuperblockFields = kSuperblock;
const std::span<const Field> kEntryFields = kEntry;
const std::span<const Field> kRecordFields = kRecord;

std::span<const Field> HeaderEndFields(uint16_t kind) {
    if (kind == storage::kHeaderPage) return kHeaderPageEnd;
    return kOtherPageEnd;
}

std::span<const Field> PayloadFields(uint16_t recordType) {
    switch (recordType) {
        case storage::kFileInfoRecord:
            return kFileInfo;
        case storage::kBlockSettingsRecord:
            return kBlockSettings;
        case storage::kFindSettingsRecord:
            return kFindSettings;
        default:
            return {};
    }
}

const char* RecordName(uint16_t type) {
    switch (type) {
        case storage::kFileInfoRecord:
            return "FileInfoRecord";
        case storage::kDirectoryRecord:
            return "DirectoryRecord";
        case storage::kDataRecord:
            return "DataRecord";
        case storage::kLinkRecord:
            return "LinkRecord";
        case storage::kBlockSettingsRecord:
            return "BlockSettingsRecord";
        case storage::kFindSettingsRecord:
            return "FindSettingsRecord";
        case storage::kRootDataRecord:
            return "RootDataRecord";
        case storage::kPageListRecord:
            return "PageListRecord";
        default:
            return "unknown type";
    }
}

uint64_t NumberIn(const Field& field, const uint8_t* structure) {
    switch (field.width) {
        case 2:
            return storage::LoadU16(structure, field.offset);
        case 4:
            return storage::LoadU32(structure, field.offset);
        case 8:
            return storage::LoadU64(structure, field.offset);
        default:
            return 0;
    }
}

WString UnitsAt(const uint8_t* units, size_t count) {
    while (count > 0 && storage::LoadU16(units, 2 * (count - 1)) == 0) --count;
    WString text;
    for (size_t i = 0; i < count; ++i) {
        text += static_cast<WChar>(storage::LoadU16(units, 2 * i));
    }
    return text;
}

std::string Quoted(WStringView text) {
    return "\"" + Printable(text) + "\"";
}

Shown ShowField(const Field& field, const uint8_t* structure) {
    const uint64_t number = NumberIn(field, structure);
    Shown shown{fmt::format("{}", number), ""};
    switch (field.show) {
        case Show::kNumber:
            break;
        case Show::kHex:
            shown.value = fmt::format("0x{:x}", number);
            break;
        case Show::kKind:
            shown.meaning = number == 0 ? "" : KindName(number);
            break;
        case Show::kRecordType:
            shown.meaning = RecordName(static_cast<uint16_t>(number));
            break;
        case Show::kMovedRecord:
            shown.meaning = number == 0 ? "" : RecordName(static_cast<uint16_t>(number));
            break;
        case Show::kAttributes:
            shown.meaning = NamesOf(kAttributeBits, number);
            break;
        case Show::kFlags:
            shown.meaning = NamesOf(kFlagBits, number);
            break;
        case Show::kMethod:
            shown.meaning = MethodName(number);
            break;
        case Show::kDate:
            return ShowDate(number);
        case Show::kText:
            shown.value = Quoted(UnitsAt(structure + field.offset, field.width / 2));
            break;
    }
    return shown;
}

std::vector<RecordView> RecordsOf(const std::vector<uint8_t>& page, uint32_t* end) {
    const auto size = static_cast<uint32_t>(page.size());
    const uint32_t stop = std::min<uint32_t>(
        storage::LoadU16(page.data(), offsetof(HeaderPageHeader, endOffset)), size);
    std::vector<RecordView> records;
    uint32_t at = storage::kRecordsStart;
    while (at + storage::kRecordHeaderSize <= stop) {
        const uint8_t* record = page.data() + at;
        const RecordView view = {at, storage::LoadU16(record, storage::record::kType),
                                 storage::LoadU16(record, storage::record::kSize),
                                 storage::LoadU32(record, storage::record::kLink)};
        if (view.size < storage::kRecordHeaderSize || view.size > stop - at) break;
        records.push_back(view);
        at += view.size;
    }
    *end = at;
    return records;
}

}  // namespace fbr
