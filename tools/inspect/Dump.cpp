// SPDX-License-Identifier: MIT
#include "tools/inspect/Dump.h"

#include <fmt/format.h>

#include <algorithm>

#include "storage/core/Format.h"
#include "tools/inspect/Fields.h"
#include "tools/inspect/PageMap.h"

namespace fbr {
namespace {

constexpr size_t kRow = 16;            // bytes of a line
constexpr size_t kNumbersInLine = 10;  // of a PageListPage

class Dumper {
  public:
    Dumper(const Image& image, uint32_t number, std::ostream& out)
        : image_(image), number_(number), page_(image.Page(number)), out_(out) {}

    void Fields() const;

  private:
    const uint8_t* At(uint32_t offset) const { return page_.data() + offset; }
    uint32_t Size() const { return image_.PageSize(); }
    uint32_t Payload() const { return Size() - storage::kPageHeaderSize; }
    void Heading(const std::string& text) const { out_ << '\n' << text << '\n'; }
    void Structure(std::span<const Field> fields, uint32_t offset) const;
    void MapSlots() const;
    void Records() const;
    void Record(const RecordView& record) const;
    void Entries(uint32_t offset, uint32_t end) const;
    void Listed() const;
    void PayloadOf(uint16_t kind) const;

    const Image& image_;
    const uint32_t number_;
    const PageBytes page_;
    std::ostream& out_;
};

void Dumper::Structure(std::span<const Field> fields, uint32_t offset) const {
    for (const Field& field : fields) {
        const Shown shown = ShowField(field, At(offset));
        out_ << fmt::format("  {:5}  {:20}  {}", offset + field.offset, field.name, shown.value);
        if (!shown.meaning.empty()) out_ << "  (" << shown.meaning << ')';
        out_ << '\n';
    }
}

// Neighbours of one kind share a line.
void Dumper::MapSlots() const {
    const uint16_t first = storage::LoadU16(At(0), 0);
    Heading("Slots");
    out_ << fmt::format("  {:>11}  {:5}  {}\n", "slot 0", first,
                        first == image_.PageShift() ? "(the page size as a power of 2)"
                        : first == 0                ? "(a group without a map: all free)"
                                                    : "(damaged: not the page size)");
    const uint32_t slots = Size() / 2;
    for (uint32_t from = 1, to = 1; from < slots; from = to) {
        const uint16_t kind = storage::LoadU16(At(2 * from), 0);
        while (to < slots && storage::LoadU16(At(2 * to), 0) == kind) ++to;
        const uint64_t page = uint64_t{number_} + from, last = uint64_t{number_} + to - 1;
        const std::string pages =
            page == last ? fmt::format("{}", page) : fmt::format("{}-{}", page, last);
        out_ << fmt::format("  {:>11}  {:5}  {}{}\n", pages, kind, LookOf(UseOfKind(kind)).name,
                            page >= image_.PageCount() ? ", past the end of the file" : "");
    }
}

// Free neighbours share a line.
void Dumper::Entries(uint32_t offset, uint32_t end) const {
    const uint32_t count = (end - offset) / storage::kEntrySize;
    uint32_t free = 0;
    for (uint32_t i = 0; i <= count; ++i) {
        const uint32_t at = offset + i * storage::kEntrySize;
        const bool last = i == count;
        if (!last && storage::LoadU32(At(at), 0) == 0) {
            ++free;
            continue;
        }
        if (free != 0) Heading(fmt::format("Free entries up to {}: {}", at, free));
        free = 0;
        if (last) break;
        Heading(fmt::format("Entry at {}", at));
        Structure(kEntryFields, at);
    }
}

void Dumper::Record(const RecordView& record) const {
    Heading(fmt::format("Record at {}: {}", record.offset, RecordName(record.type)));
    Structure(kRecordFields, record.offset);
    const uint32_t payload = record.offset + storage::kRecordHeaderSize;
    const uint32_t end = record.offset + record.size;
    for (const Field& field : PayloadFields(record.type)) {
        if (field.offset + field.width <= record.size) Structure({&field, 1}, record.offset);
    }
    if (record.link != 0 || !PayloadFields(record.type).empty() || payload == end) return;
    if (record.type == storage::kDirectoryRecord) return Entries(payload, end);
    out_ << fmt::format("  {:5}  {} bytes of payload\n", payload, end - payload);
}

void Dumper::Records() const {
    uint32_t end = 0;
    for (const RecordView& record : RecordsOf(page_, &end)) Record(record);
    const uint32_t told = storage::LoadU16(At(0), offsetof(storage::HeaderPageHeader, endOffset));
    if (end == told) return;
    Heading(fmt::format("No record can be read at {}, though the records end at {}", end, told));
}

void Dumper::Listed() const {
    Heading("Listed pages by ordinal, 0 for none");
    const uint32_t slots = Payload() / 4;
    for (uint32_t i = 0; i < slots; ++i) {
        if (i % kNumbersInLine == 0) out_ << fmt::format("  {:5} ", i);
        out_ << fmt::format(" {:>6}", storage::LoadU32(At(storage::kPageHeaderSize + 4 * i), 0));
        if (i % kNumbersInLine == kNumbersInLine - 1 || i + 1 == slots) out_ << '\n';
    }
}

void Dumper::PayloadOf(uint16_t kind) const {
    switch (kind) {
        case storage::kEntryPage:
            return Entries(storage::kPageHeaderSize, Size());
        case storage::kPageListPage:
            return Listed();
        case storage::kNamePage:
        case storage::kLinkPage:
            Heading("Text");
            out_ << fmt::format("  {:5}  {}\n", storage::kPageHeaderSize,
                                Quoted(UnitsAt(At(storage::kPageHeaderSize), Payload() / 2)));
            return;
        default:
            Heading("Payload");
            out_ << fmt::format("  {:5}  {} bytes\n", storage::kPageHeaderSize, Payload());
    }
}

void Dumper::Fields() const {
    if (image_.IsMapPage(number_)) return MapSlots();
    const uint16_t kind = storage::LoadU16(At(0), 0);
    if (number_ == storage::kSuperblockNumber) {
        Heading("Superblock");
        return Structure(kSuperblockFields, 0);
    }
    Heading("Page header");
    Structure(kPageHeaderFields, 0);
    Structure(HeaderEndFields(kind), 0);
    if (kind == storage::kHeaderPage) return Records();
    if (UseOfKind(kind) != Use::kUnknown && UseOfKind(kind) != Use::kFree) PayloadOf(kind);
}

std::string HexRow(const uint8_t* bytes, size_t count) {
    std::string row, text;
    for (size_t i = 0; i < kRow; ++i) {
        if (i == kRow / 2) row += ' ';
        row += i < count ? fmt::format(" {:02x}", bytes[i]) : "   ";
        if (i < count) text += bytes[i] >= 0x20 && bytes[i] < 0x7F ? char(bytes[i]) : '.';
    }
    return row + "  |" + text + "|";
}

// Rows like the one before become one line with an asterisk.
void DumpBytes(const PageBytes& bytes, size_t size, std::ostream& out) {
    bool starred = false;
    for (size_t at = 0; at < size; at += kRow) {
        const uint8_t* row = bytes.data() + at;
        const size_t count = std::min(kRow, size - at);
        const bool same = at != 0 && count == kRow && std::equal(row, row + kRow, row - kRow);
        if (!same) out << fmt::format("  {:04x} {}\n", at, HexRow(row, count));
        if (same && !starred) out << "  *\n";
        starred = same;
    }
    out << fmt::format("  {:04x}\n", size);
}

std::string InMap(const Image& image, uint32_t page) {
    if (image.IsMapPage(page)) return "a map page, by its place";
    const uint16_t slot = SlotOf(image, page);
    return fmt::format("{} in the page map ({})", slot, LookOf(UseOfKind(slot)).name);
}

}  // namespace

void DumpPage(const Image& image, uint32_t page, std::ostream& out) {
    const bool whole = page < image.PageCount();
    const uint32_t size = whole ? image.PageSize() : image.TrailingBytes();
    out << fmt::format("Page {} of {}: bytes {} to {} of the file\n", page, image.Name(),
                       image.PlaceOf(page), image.PlaceOf(page) + size - 1);
    if (whole) {
        out << InMap(image, page) << '\n';
        Dumper(image, page, out).Fields();
    } else {
        out << "no whole page: the container ends before it\n";
    }
    out << (image.ByteSwapped() ? "\nBytes, in the other byte order\n" : "\nBytes\n");
    DumpBytes(image.Raw(page), size, out);
}

}  // namespace fbr
