// SPDX-License-Identifier: MIT
#include "tools/format/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "tools/format/Record.h"

namespace fbr {
namespace {

constexpr bool IsHigh(char32_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}
constexpr bool IsLow(char32_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

void AppendUtf8Character(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
        return;
    }
    const int tail = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr uint8_t kLead[] = {0, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(kLead[tail] | (c >> (6 * tail)));
    for (int i = tail - 1; i >= 0; --i) out += static_cast<char>(0x80 | ((c >> (6 * i)) & 0x3F));
}

// The characters of code page 1252 from 0x80 to 0x9F; the five free places keep their number, as
// the system's own conversion does.
constexpr char16_t kAnsi80[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                  0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                  0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                  0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

constexpr size_t kPartBytes = 64 * 1024;  // even: no unit is parted

void AppendUtf16(WString& out, std::string_view bytes, bool bigEndian) {
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const auto first = static_cast<uint8_t>(bytes[i]);
        const auto second = static_cast<uint8_t>(bytes[i + 1]);
        out += static_cast<WChar>(bigEndian ? first << 8 | second : second << 8 | first);
    }
}

// Where the run of ASCII ends that begins at `position`.
size_t SkipAscii(std::string_view bytes, size_t position) {
    for (uint64_t eight; position + sizeof eight <= bytes.size(); position += sizeof eight) {
        std::memcpy(&eight, bytes.data() + position, sizeof eight);
        if ((eight & 0x8080808080808080) != 0) break;
    }
    while (position < bytes.size() && static_cast<uint8_t>(bytes[position]) < 0x80) ++position;
    return position;
}

// The length of what is UTF-8 at the start of `bytes`.
size_t Utf8Length(std::string_view bytes) {
    size_t position = SkipAscii(bytes, 0);
    for (char32_t character = 0; NextUtf8(bytes, position, character);)
        position = SkipAscii(bytes, position);
    return position;
}

void AppendStrictUtf8(WString& out, std::string_view bytes) {
    for (size_t position = 0; position < bytes.size();) {
        const size_t end = SkipAscii(bytes, position);
        out.append(bytes.begin() + position, bytes.begin() + end);
        position = end;
        char32_t character = 0;
        if (NextUtf8(bytes, position, character)) AppendUnits(out, character);
    }
}

}  // namespace

bool IsLoneSurrogate(WStringView text, size_t index) {
    const char32_t unit = text[index];
    if (IsHigh(unit)) return index + 1 >= text.size() || !IsLow(text[index + 1]);
    if (IsLow(unit)) return index == 0 || !IsHigh(text[index - 1]);
    return false;
}

std::filesystem::path FilePath(std::string_view utf8) {
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

void AppendUtf8(std::string& out, WStringView text) {
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if (IsLoneSurrogate(text, i)) {
            c = 0xFFFD;
        } else if (IsHigh(c)) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
        }
        AppendUtf8Character(out, c);
    }
}

std::string Utf8(WStringView text) {
    std::string out;
    out.reserve(text.size());
    AppendUtf8(out, text);
    return out;
}

bool NextUtf8(std::string_view text, size_t& position, char32_t& character) {
    if (position >= text.size()) return false;
    const auto lead = static_cast<uint8_t>(text[position]);
    if (lead < 0x80) {
        character = lead;
        ++position;
        return true;
    }
    const size_t tail = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    if (lead < 0xC2 || lead > 0xF4 || text.size() - position <= tail) return false;
    char32_t c = lead & (0x3F >> tail);
    for (size_t i = 1; i <= tail; ++i) {
        const auto byte = static_cast<uint8_t>(text[position + i]);
        if ((byte & 0xC0) != 0x80) return false;
        c = c << 6 | (byte & 0x3F);
    }
    constexpr char32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
    if (c < kLeast[tail] || c > 0x10FFFF || IsHigh(c) || IsLow(c)) return false;
    character = c;
    position += tail + 1;
    return true;
}

void AppendUnits(WString& out, char32_t character) {
    if (character >= 0x10000) {
        character -= 0x10000;
        out += static_cast<WChar>(0xD800 + (character >> 10));
        character = 0xDC00 + (character & 0x3FF);
    }
    out += static_cast<WChar>(character);
}

bool FromStrictUtf8(std::string_view text, WString& out) {
    out.clear();
    out.reserve(text.size());
    size_t position = 0;
    char32_t character = 0;
    while (position < text.size()) {
        if (!NextUtf8(text, position, character)) return false;
        AppendUnits(out, character);
    }
    return true;
}

void AppendAnsi(WString& out, std::string_view bytes) {
    for (const char byte : bytes) {
        const auto c = static_cast<uint8_t>(byte);
        out += static_cast<WChar>(c >= 0x80 && c < 0xA0 ? kAnsi80[c - 0x80] : c);
    }
}

namespace {

// -1 for a unit that has none.
int AnsiByte(WChar unit) {
    if (unit < 0x80 || (unit >= 0xA0 && unit < 0x100)) return unit;
    const auto* at = std::find(std::begin(kAnsi80), std::end(kAnsi80), static_cast<char16_t>(unit));
    return at == std::end(kAnsi80) ? -1 : 0x80 + static_cast<int>(at - std::begin(kAnsi80));
}

}  // namespace

std::string Ansi(WStringView text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (const WChar unit : text) bytes += static_cast<char>(AnsiByte(unit));
    return bytes;
}

bool IsAnsi(WStringView text) {
    return std::all_of(text.begin(), text.end(), [](WChar unit) { return AnsiByte(unit) >= 0; });
}

TextDecoder::TextDecoder(ByteSource& source, bool (*allowAnsi)(std::string_view begin))
    : source_(source) {
    Fill();
    const std::string_view begin = bytes_;
    const bool marked = begin.starts_with("\xFF\xFE") || begin.starts_with("\xFE\xFF");
    if (marked || (begin.size() >= 2 && begin[0] != 0 && begin[1] == 0)) {
        encoding_ = begin[0] == '\xFE' ? Encoding::kBigEndian : Encoding::kLittleEndian;
        if (marked) bytes_.erase(0, 2);
        return;
    }
    if (allowAnsi(begin) && !IsAllUtf8()) encoding_ = Encoding::kAnsi;
    if (begin.starts_with(kUtf8Mark)) bytes_.erase(0, kUtf8Mark.size());
}

void TextDecoder::Fill() {
    size_t size = bytes_.size();
    bytes_.resize(kPartBytes);
    while (!ended_ && size < kPartBytes) {
        const size_t more = source_.Read(bytes_.data() + size, kPartBytes - size);
        ended_ = more == 0;
        size += more;
    }
    bytes_.resize(size);
}

// Goes through the source and back to where it was at first.
bool TextDecoder::IsAllUtf8() {
    bool sound = true;
    while (sound && !bytes_.empty()) {
        const size_t whole = Utf8Length(bytes_);
        sound = IsMoreToCome(whole) || whole == bytes_.size();
        bytes_.erase(0, whole);
        Fill();
    }
    source_.Rewind();
    bytes_.clear();
    ended_ = false;
    Fill();
    return sound;
}

// Behind so many whole characters the first bytes of another one.
bool TextDecoder::IsMoreToCome(size_t whole) const {
    constexpr size_t kLongestCharacter = 4;
    return !ended_ && whole != 0 && bytes_.size() - whole < kLongestCharacter;
}

bool TextDecoder::More(WString& out) {
    Fill();
    if (bytes_.empty()) return false;
    size_t size = bytes_.size();
    if (encoding_ == Encoding::kUtf8) {
        size = Utf8Length(bytes_);
        const std::string_view whole = std::string_view(bytes_).substr(0, size);
        if (size != bytes_.size() && !IsMoreToCome(size)) {
            lines_ += static_cast<uint64_t>(std::count(whole.begin(), whole.end(), '\n'));
            throw DecodeError(lines_, "UTF-8 text (or UTF-16 with a byte-order mark)");
        }
        AppendStrictUtf8(out, whole);
    } else if (encoding_ == Encoding::kAnsi) {
        AppendAnsi(out, bytes_);
    } else {
        if (size % 2 != 0) throw DecodeError(1, "UTF-16 text with an even number of bytes");
        AppendUtf16(out, bytes_, encoding_ == Encoding::kBigEndian);
    }
    const std::string_view done = std::string_view(bytes_).substr(0, size);
    lines_ += static_cast<uint64_t>(std::count(done.begin(), done.end(), '\n'));
    bytes_.erase(0, size);
    return true;
}

WString DecodeTextFile(std::string_view bytes, bool (*allowAnsi)(std::string_view bytes)) {
    ByteView source(bytes);
    TextDecoder decoder(source, allowAnsi);
    WString text;
    while (decoder.More(text)) {
    }
    return text;
}

namespace {

// What has no width and turns the text around it, ends its line or hides in it.
bool IsUnseen(char32_t c) {
    return (c >= 0x200B && c <= 0x200F) || (c >= 0x2028 && c <= 0x202E) ||
           (c >= 0x2060 && c <= 0x206F) || c == 0x061C || c == 0xFEFF;
}

}  // namespace

std::string Printable(WStringView text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const char32_t c = text[i];
        if (c == '\n')
            out += "\\n";
        else if (c == '\r')
            out += "\\r";
        else if (c == '\t')
            out += "\\t";
        else if (c == 0)
            out += "\\0";
        else if (c < 0x20 || (c >= 0x7F && c < 0xA0) || IsUnseen(c) || IsLoneSurrogate(text, i))
            out += fmt::format("\\u{:04X}", static_cast<uint32_t>(c));
        else if (IsHigh(c))
            AppendUtf8(out, text.substr(i++, 2));
        else
            AppendUtf8(out, text.substr(i, 1));
    }
    return out;
}

std::string Printable(std::string_view text) {
    std::string out;
    WString units;
    for (size_t at = 0; at < text.size();) {
        char32_t c = 0;
        if (NextUtf8(text, at, c)) {
            AppendUnits(units, c);
            continue;
        }
        out += Printable(units) + fmt::format("\\x{:02X}", static_cast<uint8_t>(text[at++]));
        units.clear();
    }
    return out + Printable(units);
}

}  // namespace fbr
