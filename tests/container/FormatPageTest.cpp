// docs/container-format.md, held against the engine's structures and against real bytes.
#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <map>
#include <sstream>

#include "storage/core/Format.h"
#include "tests/container/Shapes.h"
#include "tests/support/ContainerReader.h"

namespace support::container {
namespace {

struct FieldAt {
    size_t offset, width;
    bool operator==(const FieldAt& other) const = default;
};
using Fields = std::map<std::string, FieldAt>;

std::vector<std::string> Cells(const std::string& line) {
    std::vector<std::string> cells;
    std::istringstream in(line.substr(1));
    for (std::string cell; std::getline(in, cell, '|');) {
        const size_t first = cell.find_first_not_of(' ');
        const size_t last = cell.find_last_not_of(' ');
        cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
    }
    return cells;
}

// The lines of the page.
std::vector<std::string> Page() {
    std::ifstream in(FORMAT_PAGE);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// The rows of the first table behind the line that begins with `lead`.
std::vector<std::vector<std::string>> Table(const std::string& lead) {
    std::vector<std::vector<std::string>> rows;
    bool within = false;
    for (const std::string& line : Page()) {
        if (!within) {
            within = line.rfind(lead, 0) == 0;
        } else if (line.rfind("| ", 0) == 0) {
            rows.push_back(Cells(line));
        } else if (!rows.empty()) {
            break;
        }
    }
    if (rows.size() > 2) rows.erase(rows.begin(), rows.begin() + 2);  // head and rule
    return rows;
}

Fields FieldsOf(const std::string& lead) {
    Fields fields;
    for (const auto& row : Table(lead))
        fields[row.at(2)] = {std::stoul(row.at(0)), std::stoul(row.at(1))};
    return fields;
}

#define FIELD(type, member)                                                \
    {                                                                      \
#member, {                                                         \
            offsetof(storage::type, member), sizeof(storage::type::member) \
        }                                                                  \
    }

TEST(FormatPage, TellsThePageHeader) {
    const Fields expected = {FIELD(PageHeader, kind),       FIELD(PageHeader, pendingKind),
                             FIELD(PageHeader, pageNumber), FIELD(PageHeader, listPage),
                             FIELD(PageHeader, prevPage),   FIELD(PageHeader, nextPage),
                             FIELD(PageHeader, fileId),     FIELD(PageHeader, level),
                             FIELD(PageHeader, recordType), FIELD(PageHeader, recordInfo)};
    EXPECT_EQ(FieldsOf("## Page header"), expected);
}

TEST(FormatPage, TellsTheHeaderPage) {
    const Fields expected = {
        FIELD(HeaderPageHeader, kind),       FIELD(HeaderPageHeader, pendingKind),
        FIELD(HeaderPageHeader, pageNumber), FIELD(HeaderPageHeader, listPage),
        FIELD(HeaderPageHeader, prevPage),   FIELD(HeaderPageHeader, nextPage),
        FIELD(HeaderPageHeader, fileId),     FIELD(HeaderPageHeader, level),
        FIELD(HeaderPageHeader, parentId),   FIELD(HeaderPageHeader, endOffset),
        FIELD(HeaderPageHeader, padding)};
    EXPECT_EQ(FieldsOf("`HeaderPage`, where"), expected);
}

TEST(FormatPage, TellsTheSuperblock) {
    const Fields expected = {FIELD(Superblock, kind),
                             FIELD(Superblock, reserved2),
                             FIELD(Superblock, pageNumber),
                             FIELD(Superblock, reserved8),
                             FIELD(Superblock, logPending),
                             FIELD(Superblock, formatA),
                             FIELD(Superblock, formatB),
                             FIELD(Superblock, banner),
                             FIELD(Superblock, padding142),
                             FIELD(Superblock, engineVersion),
                             FIELD(Superblock, engineVersionMin),
                             FIELD(Superblock, lastFileId),
                             FIELD(Superblock, transactionCounter),
                             FIELD(Superblock, layoutA),
                             FIELD(Superblock, layoutB),
                             FIELD(Superblock, layoutC),
                             FIELD(Superblock, layoutD),
                             FIELD(Superblock, rootEntry),
                             FIELD(Superblock, inFileLog),
                             FIELD(Superblock, padding238),
                             FIELD(Superblock, maxPages),
                             FIELD(Superblock, flags),
                             FIELD(Superblock, logChainHead),
                             FIELD(Superblock, reservedSize)};
    EXPECT_EQ(FieldsOf("## Superblock"), expected);
}

TEST(FormatPage, TellsEntriesAndRecords) {
    const Fields entry = {FIELD(DirectoryEntry, fileId),     FIELD(DirectoryEntry, headerPage),
                          FIELD(DirectoryEntry, attributes), FIELD(DirectoryEntry, nameLength),
                          FIELD(DirectoryEntry, namePage),   FIELD(DirectoryEntry, name)};
    EXPECT_EQ(FieldsOf("## Directories"), entry);
    const Fields head = {{"type", {storage::record::kType, 2}},
                         {"size", {storage::record::kSize, 2}},
                         {"info", {storage::record::kInfo, 4}},
                         {"link", {storage::record::kLink, 4}}};
    EXPECT_EQ(FieldsOf("Records follow one another"), head);
    const Fields info = {{"created", {storage::record::kCreated, 8}},
                         {"modified", {storage::record::kModified, 8}},
                         {"accessed", {storage::record::kAccessed, 8}},
                         {"fileSize", {storage::record::kFileSize, 8}}};
    EXPECT_EQ(FieldsOf("`FileInfoRecord`, 48"), info);
}

TEST(FormatPage, TellsKindsRecordTypesAndAttributes) {
    std::map<std::string, std::string> kinds, types, attributes;
    for (const auto& row : Table("## Page kinds")) kinds[row.at(0)] = row.at(1);
    const std::map<std::string, std::string> expectedKinds = {
        {"8 to 16", "map page"},
        {std::to_string(storage::kNamePage), "`NamePage`"},
        {std::to_string(storage::kHeaderPage), "`HeaderPage`"},
        {std::to_string(storage::kEntryPage), "`EntryPage`"},
        {std::to_string(storage::kDataPage), "`DataPage`"},
        {std::to_string(storage::kRecordPage), "record page"},
        {std::to_string(storage::kLinkPage), "`LinkPage`"},
        {std::to_string(storage::kRootDataPage), "`RootDataPage`"},
        {std::to_string(storage::kPageListPage), "`PageListPage`"},
        {std::to_string(storage::kSuperblockPage), "superblock"}};
    EXPECT_EQ(kinds, expectedKinds);
    for (const auto& row : Table("A record with a link")) types[row.at(1)] = row.at(0);
    EXPECT_EQ(types["`FileInfoRecord`"], std::to_string(storage::kFileInfoRecord));
    EXPECT_EQ(types["`DirectoryRecord`"], std::to_string(storage::kDirectoryRecord));
    EXPECT_EQ(types["`DataRecord`"], std::to_string(storage::kDataRecord));
    EXPECT_EQ(types["`LinkRecord`"], std::to_string(storage::kLinkRecord));
    EXPECT_EQ(types["`BlockSettingsRecord`"], std::to_string(storage::kBlockSettingsRecord));
    EXPECT_EQ(types["`FindSettingsRecord`"], std::to_string(storage::kFindSettingsRecord));
    EXPECT_EQ(types["`RootDataRecord`"], std::to_string(storage::kRootDataRecord));
    EXPECT_EQ(types["`PageListRecord`"], std::to_string(storage::kPageListRecord));
}

// The bytes of the hexadecimal dump behind the line that begins with `lead`: lines of an offset
// and 16 bytes, where a line "*" repeats the one before it.
Bytes Dump(const std::string& lead) {
    Bytes bytes;
    bool within = false, block = false, repeat = false;
    for (const std::string& line : Page()) {
        if (!within) {
            within = line.rfind(lead, 0) == 0;
            continue;
        }
        if (line.rfind("```", 0) == 0) {
            if (block) break;
            block = true;
            continue;
        }
        if (!block) continue;
        if (line == "*") {
            repeat = true;
            continue;
        }
        std::istringstream in(line);
        size_t offset = 0;
        in >> std::hex >> offset;
        if (repeat) {
            const Bytes last(bytes.end() - 16, bytes.end());
            while (bytes.size() < offset) bytes.insert(bytes.end(), last.begin(), last.end());
            repeat = false;
        }
        EXPECT_EQ(bytes.size(), offset) << line;
        for (unsigned byte; in >> byte;) bytes.push_back(static_cast<uint8_t>(byte));
    }
    return bytes;
}

TEST(FormatPage, ShowsAFreshContainer) {
    const Bytes dump = Dump("### A fresh container");
    EXPECT_EQ(dump.size(), 1536u);
    EXPECT_EQ(dump, Builder({}, Directory(u"")).Finish());
}

TEST(FormatPage, ShowsAValue) {
    const Reading reading = ReadContainer(Dump("### A value"));
    EXPECT_TRUE(reading.Sound()) << reading.Report();
    Key expected;
    expected.values[u"FBRVersion"] = {4, {2, 0, 0, 0}};
    EXPECT_EQ(RegistryOf(reading.root), expected);
}

}  // namespace
}  // namespace support::container
