// SPDX-License-Identifier: MIT
#include "tools/inspect/Info.h"

#include <fmt/format.h>

#include <algorithm>

#include "storage/core/Format.h"
#include "tools/format/JsonLines.h"
#include "tools/format/Text.h"
#include "tools/inspect/Contents.h"
#include "tools/inspect/Fields.h"
#include "tools/inspect/PageMap.h"

namespace fbr {
namespace {

// One line of the text, one member of the JSON object.
struct Row {
    std::string label;
    std::string member;
    std::string value;  // as text
    std::string json;   // as a JSON value
};

struct Section {
    const char* heading;
    const char* member;
    std::vector<Row> rows;

    void Number(const char* label, const char* key, uint64_t number, const std::string& note = "") {
        const std::string digits = fmt::format("{}", number);
        rows.push_back({label, key, note.empty() ? digits : digits + "  (" + note + ")", digits});
    }
    void Words(const char* label, const char* key, const std::string& text) {
        std::string json;
        AppendJsonString(json, platform::FromUtf8(text));
        rows.push_back({label, key, text, json});
    }
};

struct Report {
    std::vector<Section> sections;
    std::vector<std::string> problems;
};

void AddFile(const Image& image, Report* report) {
    Section file = {"File", "file", {}};
    file.Words("name", "name", image.Name());
    file.Number("bytes", "bytes", image.FileSize());
    file.Number("page size", "pageSize", image.PageSize());
    file.Number("pages", "pages", image.PageCount());
    file.Number("pages in front", "basePage", image.BasePage());
    file.Number("bytes behind the last page", "trailingBytes", image.TrailingBytes());
    file.Words("byte order", "byteOrder", image.ByteSwapped() ? "big-endian" : "little-endian");
    report->sections.push_back(std::move(file));
    if (image.HowKnown() == Image::Known::kByPageOne) {
        report->problems.push_back("page 0 has no signature; the page size is taken from page 1");
    } else if (image.HowKnown() == Image::Known::kByCaller) {
        report->problems.push_back("pages 0 and 1 are not known; the page size is the one given");
    }
    if (image.TrailingBytes() != 0) report->problems.push_back("the last page is not whole");
}

void AddSuperblock(const Image& image, Report* report) {
    if (image.PageCount() <= storage::kSuperblockNumber) {
        report->problems.push_back("there is no superblock: the file is too short");
        return;
    }
    const PageBytes page = image.Page(storage::kSuperblockNumber);
    const auto super = storage::Load<storage::Superblock>(page.data(), 0);
    Section section = {"Superblock", "superblock", {}};
    for (const Field& field : kSuperblockFields) {
        const Shown shown = ShowField(field, page.data());
        if (field.show == Show::kText) {
            section.rows.push_back({field.name, field.name, shown.value, ""});
            AppendJsonString(section.rows.back().json,
                             UnitsAt(page.data() + field.offset, field.width / 2));
        } else {
            section.rows.push_back(
                {field.name, field.name,
                 shown.meaning.empty() ? shown.value : shown.value + "  (" + shown.meaning + ")",
                 fmt::format("{}", NumberIn(field, page.data()))});
        }
    }
    report->sections.push_back(std::move(section));
    if (super.kind != storage::kSuperblockPage) {
        report->problems.push_back("page 1 does not say that it is the superblock");
    }
    if ((super.flags & storage::kFlagCorrupted) != 0) {
        report->problems.push_back("the container is marked as corrupted");
    }
    if (super.logPending != 0) report->problems.push_back("a redo log waits to be replayed");
}

void AddPages(const Image& image, Report* report) {
    UseCounts counts = {};
    const uint32_t damaged =
        WalkMap(image, [&counts](uint32_t, Use use) { ++counts[static_cast<size_t>(use)]; });
    Section section = {"Pages, as the page map has them", "pages", {}};
    for (size_t i = 0; i < kUses; ++i) {
        const UseLook& look = LookOf(static_cast<Use>(i));
        section.Number(look.name, look.json, counts[i], counts[i] == 0 ? "" : look.plain);
    }
    report->sections.push_back(std::move(section));
    if (damaged != 0)
        report->problems.push_back(fmt::format(
            "damaged map pages: {}; their pages are counted by their own kinds", damaged));
    if (const uint64_t unknown = counts[static_cast<size_t>(Use::kUnknown)]; unknown != 0) {
        report->problems.push_back(fmt::format("pages of unknown kind: {}", unknown));
    }
}

void AddContents(const Image& image, Report* report) {
    const Contents contents = CountContents(image);
    Section section = {"Contents", "contents", {}};
    section.Number("keys", "keys", contents.keys, "with the root");
    section.Number("values", "values", contents.values);
    section.Number("links", "links", contents.links);
    section.Number("levels of keys below the root", "depth", contents.depth);
    section.Number("bytes of data", "valueBytes", contents.valueBytes);
    section.Number("bytes in the largest value", "largestValue", contents.largestValue);
    report->sections.push_back(std::move(section));
    if (contents.badReferences != 0) {
        report->problems.push_back(
            fmt::format("references that lead nowhere, or to a page a second time: {}",
                        contents.badReferences));
    }
}

void WriteText(const Report& report, std::ostream& out) {
    size_t width = 0;
    for (const Section& section : report.sections) {
        for (const Row& row : section.rows) width = std::max(width, row.label.size());
    }
    for (const Section& section : report.sections) {
        out << section.heading << '\n';
        for (const Row& row : section.rows) {
            out << fmt::format("  {:{}}  {}\n", row.label, width, row.value);
        }
        out << '\n';
    }
    if (report.problems.empty()) {
        out << "No problem seen on the way; fbr check looks at every page.\n";
        return;
    }
    out << "Problems\n";
    for (const std::string& problem : report.problems) out << "  " << problem << '\n';
}

void WriteJson(const Report& report, std::ostream& out) {
    out << "{\"v\":1,";
    for (const Section& section : report.sections) {
        out << '"' << section.member << "\":{";
        const char* separator = "";
        for (const Row& row : section.rows) {
            out << separator << '"' << row.member << "\":" << row.json;
            separator = ",";
        }
        out << "},";
    }
    out << "\"problems\":[";
    const char* separator = "";
    for (const std::string& problem : report.problems) {
        out << separator << '"' << problem << '"';
        separator = ",";
    }
    out << "],\"status\":0}\n";
}

}  // namespace

void WriteInfo(const Image& image, bool json, std::ostream& out) {
    Report report;
    AddFile(image, &report);
    AddSuperblock(image, &report);
    AddPages(image, &report);
    AddContents(image, &report);
    if (json) {
        WriteJson(report, out);
    } else {
        WriteText(report, out);
    }
}

}  // namespace fbr
