// SPDX-License-Identifier: MIT
#include "tools/inspect/Picture.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/inspect/Objects.h"

namespace fbr {
namespace {

constexpr int kWidestMap = 1024, kLargestCell = 32;  // of the drawing, in its own units
constexpr uint32_t kShare = 4;  // a kind that fills this part of a cell may show in it
constexpr uint32_t kSvgRows = 128;
constexpr int kMargin = 16, kLine = 20, kLegendColumn = 320, kDigit = 9;

// Of the kinds that fill a good part of a cell the rarest shows, so that what is everywhere does
// not cover the rest. A page of unknown kind shows before all others.
Use UseToShow(const UseCounts& cell, const UseCounts& whole, uint32_t pages) {
    if (cell[static_cast<size_t>(Use::kUnknown)] != 0) return Use::kUnknown;
    size_t shown = kUses;
    for (size_t i = 0; i < kUses; ++i) {
        if (uint64_t{kShare} * cell[i] < pages || cell[i] == 0) continue;
        if (shown == kUses || whole[i] < whole[shown]) shown = i;
    }
    if (shown == kUses) shown = std::max_element(cell.begin(), cell.end()) - cell.begin();
    return static_cast<Use>(shown);
}

std::string Scale(const Picture& picture) {
    const std::string cell = picture.pagesPerCell == 1
                                 ? "a cell is a page"
                                 : fmt::format(
                                       "a cell is {} pages and shows the rarest kind that fills a "
                                       "quarter of it",
                                       picture.pagesPerCell);
    return fmt::format("{} pages of {} bytes; {}", picture.pageCount, picture.pageSize, cell);
}

std::string Escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            default:
                out += static_cast<unsigned char>(c) < 0x20 ? '?' : c;
        }
    }
    return out;
}

std::string PagesOfCells(const Picture& picture, size_t from, size_t to) {
    const uint64_t first = uint64_t{from} * picture.pagesPerCell;
    const uint64_t last =
        std::min<uint64_t>(uint64_t{to} * picture.pagesPerCell, picture.pageCount) - 1;
    return first == last ? fmt::format("page {}", first) : fmt::format("pages {}-{}", first, last);
}

int CellSize(const Picture& picture) {
    return std::min(kLargestCell, kWidestMap / static_cast<int>(picture.columns));
}

uint32_t ColumnsOfSquare(uint32_t pages) {
    uint32_t columns = 16;
    while (columns < kSvgRows && columns * columns < pages) columns *= 2;
    return columns;
}

// Room for the number of the last page, in front of the rows.
int NumberWidth(const Picture& picture) {
    return kDigit * static_cast<int>(fmt::format("{}", picture.pageCount).size()) + kMargin / 2;
}

// Whose pages are in a cell.
struct CellOwner {
    uint32_t id = 0;  // of the first one
    bool others = false;
    bool operator==(const CellOwner&) const = default;
};

std::vector<CellOwner> OwnersOfCells(const Picture& picture, const Objects& objects) {
    std::vector<CellOwner> owners(picture.cells.size());
    for (size_t page = 0; page < objects.OwnerIds().size(); ++page) {
        const uint32_t id = objects.OwnerIds()[page];
        CellOwner& owner = owners[page / picture.pagesPerCell];
        if (id == 0) continue;
        if (owner.id == 0) owner.id = id;
        if (owner.id != id) owner.others = true;
    }
    return owners;
}

std::string OwnerInWords(const CellOwner& owner, const Objects& objects) {
    const FoundObject* object = owner.id != 0 ? objects.WithId(owner.id) : nullptr;
    if (object == nullptr) return "";
    return ", " + InWords(objects.PathOf(*object)) + (owner.others ? ", and others" : "");
}

// Neighbours alike in a row are one rectangle. The number of the first page stands in front of
// every row that has the room.
void DrawRow(const Picture& picture, const Objects& objects, const std::vector<CellOwner>& owners,
             size_t row, int top, std::ostream& out) {
    const int size = CellSize(picture), left = kMargin + NumberWidth(picture);
    if (row % static_cast<size_t>((kLine + size - 1) / size) == 0) {
        out << fmt::format("<text x=\"{}\" y=\"{}\" text-anchor=\"end\">{}</text>\n",
                           left - kMargin / 2, top + std::min(size, kLine) / 2 + 5,
                           row * picture.columns * picture.pagesPerCell);
    }
    const size_t begin = row * picture.columns;
    const size_t end = std::min(begin + picture.columns, picture.cells.size());
    for (size_t from = begin, to = begin; from < end; from = to) {
        const Use use = picture.cells[from];
        while (to < end && picture.cells[to] == use && owners[to] == owners[from]) ++to;
        out << fmt::format(
            "<rect x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" fill=\"{}\">"
            "<title>{}: {}{}</title></rect>\n",
            left + static_cast<int>(from - begin) * size, top, static_cast<int>(to - from) * size,
            size, LookOf(use).picture, PagesOfCells(picture, from, to), LookOf(use).name,
            Escaped(OwnerInWords(owners[from], objects)));
    }
}

void DrawKey(const Picture& picture, Use use, int x, int y, std::ostream& out) {
    const UseLook& look = LookOf(use);
    out << fmt::format(
        "<rect x=\"{}\" y=\"{}\" width=\"12\" height=\"12\" fill=\"{}\" stroke=\"#78909c\"/>"
        "<text x=\"{}\" y=\"{}\">{}: {} ({})</text>\n",
        x, y - 11, look.picture, x + 20, y, look.name, picture.counts[static_cast<size_t>(use)],
        look.plain);
}

std::string ColourOf(uint8_t ground) {
    // Dark letters on light grounds.
    const bool dark = ground == 236 || ground == 196 || ground == 33 || ground == 201;
    return fmt::format("\x1b[48;5;{};38;5;{}m", ground, dark ? 255 : 16);
}

}  // namespace

Picture MakePicture(const Image& image, uint32_t columns, uint32_t rows) {
    Picture picture;
    picture.name = image.Name();
    picture.pageSize = image.PageSize();
    picture.pageCount = image.PageCount();
    picture.columns = columns;
    while (uint64_t{columns} * rows * picture.pagesPerCell < picture.pageCount) {
        picture.pagesPerCell *= 2;
    }
    std::vector<UseCounts> cells;
    WalkMap(image, [&](uint32_t page, Use use) {
        if (page % picture.pagesPerCell == 0) cells.push_back({});
        ++picture.counts[static_cast<size_t>(use)];
        ++cells.back()[static_cast<size_t>(use)];
    });
    for (const UseCounts& cell : cells) {
        picture.cells.push_back(UseToShow(cell, picture.counts, picture.pagesPerCell));
    }
    return picture;
}

void DrawText(const Picture& picture, bool colour, std::ostream& out) {
    out << picture.name << '\n' << Scale(picture) << "\n\n";
    const size_t width = fmt::format("{}", picture.pageCount).size();
    for (size_t begin = 0; begin < picture.cells.size(); begin += picture.columns) {
        const size_t end = std::min<size_t>(begin + picture.columns, picture.cells.size());
        std::string line = fmt::format("{:>{}}  ", begin * picture.pagesPerCell, width);
        for (size_t i = begin; i < end; ++i) {
            const UseLook& look = LookOf(picture.cells[i]);
            const bool change = i == begin || picture.cells[i] != picture.cells[i - 1];
            if (colour && change) line += ColourOf(look.terminal);
            line += look.letter;
        }
        out << line << (colour ? "\x1b[0m\n" : "\n");
    }
    out << '\n';
    for (size_t i = 0; i < kUses; ++i) {
        if (picture.counts[i] == 0) continue;
        const UseLook& look = LookOf(static_cast<Use>(i));
        out << (colour ? ColourOf(look.terminal) : "") << look.letter << (colour ? "\x1b[0m" : "")
            << fmt::format("  {:12}  {:>{}}  {}\n", look.name, picture.counts[i], width,
                           look.plain);
    }
}

void DrawSvg(const Image& image, std::ostream& out) {
    const Picture picture = MakePicture(image, ColumnsOfSquare(image.PageCount()), kSvgRows);
    const Objects objects(image);
    const std::vector<CellOwner> owners = OwnersOfCells(picture, objects);
    const size_t rows = (picture.cells.size() + picture.columns - 1) / picture.columns;
    const int size = CellSize(picture);
    const int width = 2 * kMargin + NumberWidth(picture) + static_cast<int>(picture.columns) * size;
    const int mapTop = kMargin + 2 * kLine;
    const int legendTop = mapTop + static_cast<int>(rows) * size + 2 * kLine;
    const int keysInLine = std::max(1, (width - 2 * kMargin) / kLegendColumn);
    const auto keys = static_cast<int>(
        std::count_if(picture.counts.begin(), picture.counts.end(), [](uint64_t n) { return n; }));
    const int height = legendTop + (keys + keysInLine - 1) / keysInLine * kLine + kMargin;
    out << fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"100%\" viewBox=\"0 0 {0} {1}\" "
        "font-family=\"sans-serif\" font-size=\"13\">\n"
        "<style>svg text {{ fill: #1c2430; }} svg .ground {{ fill: #ffffff; }}\n"
        "@media (prefers-color-scheme: dark) {{\n"
        "svg text {{ fill: #dde4ec; }} svg .ground {{ fill: #14181d; }} }}\n"
        // By itself as wide as the window, however high that makes it.
        "svg:root {{ height: calc(100vw * {1} / {0}); }}</style>\n"
        "<rect class=\"ground\" width=\"{0}\" height=\"{1}\"/>\n"
        "<text x=\"{2}\" y=\"{3}\" font-weight=\"bold\">{4}</text>\n"
        "<text x=\"{2}\" y=\"{5}\">{6}</text>\n"
        "<g shape-rendering=\"crispEdges\">\n",
        width, height, kMargin, kMargin + 13, Escaped(picture.name), kMargin + 13 + kLine,
        Scale(picture));
    for (size_t row = 0; row < rows; ++row) {
        DrawRow(picture, objects, owners, row, mapTop + static_cast<int>(row) * size, out);
    }
    out << "</g>\n";
    for (int i = 0, key = 0; i < static_cast<int>(kUses); ++i) {
        if (picture.counts[static_cast<size_t>(i)] == 0) continue;
        DrawKey(picture, static_cast<Use>(i), kMargin + key % keysInLine * kLegendColumn,
                legendTop + key / keysInLine * kLine, out);
        ++key;
    }
    out << "</svg>\n";
}

}  // namespace fbr
