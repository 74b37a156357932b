// SPDX-License-Identifier: MIT
#include "tools/format/ValueText.h"

#include <fmt/format.h>

#include <cstring>

#include "tools/format/Text.h"
#include "tools/format/TypeNames.h"

namespace fbr {
namespace {

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool IsString(uint32_t type) {
    return type == kRegSz || type == kRegExpandSz || type == kRegLink;
}

// Text without the zeros at its end.
WString StringOf(const Bytes& data) {
    WString text = Units(data);
    while (!text.empty() && text.back() == 0) text.pop_back();
    return text;
}

std::vector<WString> StringsOf(const Bytes& data) {
    const WString text = StringOf(data);
    std::vector<WString> strings;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find(WChar{}, begin), text.size());
        strings.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return strings;
}

void AppendText(Bytes& data, std::string_view word) {
    WString text;
    if (!FromStrictUtf8(word, text)) throw DataError("expected UTF-8 text");
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.c_str());
    data.insert(data.end(), bytes, bytes + (text.size() + 1) * 2);
}

void ExpectOneWord(uint32_t type, const std::vector<std::string>& words) {
    if (words.size() != 1) {
        throw DataError(
            fmt::format("expected one DATA for {}, not {}: put text with blanks in quotes",
                        TypeName(type), words.size()));
    }
}

Bytes StringsFromWords(const std::vector<std::string>& words) {
    Bytes data;
    const bool none = words.size() == 1 && words[0].empty();
    for (const std::string& word : words) {
        if (none) break;
        if (word.empty())
            throw DataError("expected no empty string: it would end the multi-string");
        AppendText(data, word);
    }
    data.insert(data.end(), 2, 0);
    return data;
}

Bytes NumberFromWords(uint32_t type, const std::vector<std::string>& words) {
    ExpectOneWord(type, words);
    const bool wide = type == kRegQword;
    const auto number = ParseNumber(words[0], wide ? UINT64_MAX : UINT32_MAX);
    if (!number) {
        throw DataError(fmt::format("expected a number from 0 to {}, decimal or 0x, not \"{}\"",
                                    wide ? UINT64_MAX : UINT32_MAX, words[0]));
    }
    const size_t size = wide ? 8 : 4;
    Bytes data(size);
    for (size_t i = 0; i < size; ++i) {
        const size_t place = type == kRegDwordBigEndian ? size - 1 - i : i;
        data[place] = static_cast<uint8_t>(*number >> (8 * i));
    }
    return data;
}

Bytes BytesFromWords(const std::vector<std::string>& words) {
    Bytes data;
    for (const std::string& word : words) {
        size_t begin = 0;
        while (begin <= word.size()) {
            const size_t end = std::min(word.find_first_of(" ,:", begin), word.size());
            const auto bytes = ParseHexBytes(std::string_view(word).substr(begin, end - begin));
            if (!bytes) {
                throw DataError(
                    fmt::format("expected bytes as pairs of hexadecimal digits, not \"{}\"", word));
            }
            data.insert(data.end(), bytes->begin(), bytes->end());
            begin = end + 1;
        }
    }
    return data;
}

}  // namespace

WString Units(const Bytes& data) {
    WString text(data.size() / 2, WChar{});
    if (!text.empty()) std::memcpy(text.data(), data.data(), text.size() * 2);
    return text;
}

void AppendHex(std::string& out, const uint8_t* data, size_t size, std::string_view separator) {
    constexpr char kDigits[] = "0123456789abcdef";
    out.reserve(out.size() + size * (2 + separator.size()));
    for (size_t i = 0; i < size; ++i) {
        if (i != 0) out += separator;
        out += kDigits[data[i] >> 4];
        out += kDigits[data[i] & 15];
    }
}

std::optional<Bytes> ParseHexBytes(std::string_view text) {
    if (text.size() % 2 != 0) return std::nullopt;
    Bytes bytes(text.size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i) {
        const int high = HexDigit(text[2 * i]), low = HexDigit(text[2 * i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes[i] = static_cast<uint8_t>(high << 4 | low);
    }
    return bytes;
}

std::optional<uint64_t> NumberOf(uint32_t type, const Bytes& data) {
    const bool big = type == kRegDwordBigEndian;
    const size_t size = type == kRegQword ? 8 : type == kRegDword || big ? 4 : 0;
    if (size == 0 || data.size() != size) return std::nullopt;
    uint64_t number = 0;
    for (size_t i = 0; i < size; ++i) number = number << 8 | data[big ? i : size - 1 - i];
    return number;
}

bool ReadsAsText(uint32_t type, const Bytes& data) {
    const bool text = IsString(type) || type == kRegMultiSz;
    return (text && data.size() % 2 == 0) || NumberOf(type, data);
}

std::string DataOnOneLine(uint32_t type, const Bytes& data, size_t maxBytes) {
    if (IsString(type) && data.size() % 2 == 0) return Printable(StringOf(data));
    if (type == kRegMultiSz && data.size() % 2 == 0) {
        std::string out;
        for (const WString& text : StringsOf(data)) {
            out += fmt::format("{}\"{}\"", out.empty() ? "" : " ", Printable(text));
        }
        return out;
    }
    if (const auto number = NumberOf(type, data)) {
        return fmt::format("{} (0x{:0{}x})", *number, *number, data.size() * 2);
    }
    std::string out;
    AppendHex(out, data.data(), std::min(data.size(), maxBytes), " ");
    if (data.size() > maxBytes) out += " ...";
    return out;
}

std::string DataInFull(uint32_t type, const Bytes& data) {
    if (IsString(type) && data.size() % 2 == 0) return Utf8(StringOf(data));
    if (type == kRegMultiSz && data.size() % 2 == 0) {
        std::string out;
        for (const WString& text : StringsOf(data)) {
            if (!out.empty()) out += '\n';
            AppendUtf8(out, text);
        }
        return out;
    }
    if (const auto number = NumberOf(type, data)) return std::to_string(*number);
    std::string out;
    AppendHex(out, data.data(), data.size(), " ");
    return out;
}

Bytes DataFromWords(uint32_t type, bool hex, const std::vector<std::string>& words) {
    if (hex) return BytesFromWords(words);
    switch (type) {
        case kRegSz:
        case kRegExpandSz:
        case kRegLink: {
            ExpectOneWord(type, words);
            Bytes data;
            AppendText(data, words[0]);
            if (type == kRegLink) data.resize(data.size() - 2);  // has no terminator
            return data;
        }
        case kRegMultiSz:
            return StringsFromWords(words);
        case kRegDword:
        case kRegDwordBigEndian:
        case kRegQword:
            return NumberFromWords(type, words);
        default:
            return BytesFromWords(words);
    }
}

bool IsWritten(uint32_t type) {
    return IsString(type) || type == kRegMultiSz || type == kRegDword ||
           type == kRegDwordBigEndian || type == kRegQword;
}

Bytes DataFromText(uint32_t type, bool hex, std::string text) {
    const auto dropLineEnd = [](std::string& line) {
        if (line.ends_with('\n')) line.pop_back();
        if (line.ends_with('\r')) line.pop_back();
    };
    if (hex) {
        for (char& c : text)
            if (c == '\n' || c == '\r' || c == '\t') c = ' ';
        return BytesFromWords({text});
    }
    dropLineEnd(text);
    if (type != kRegMultiSz) return DataFromWords(type, false, {text});
    std::vector<std::string> lines;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
        dropLineEnd(lines.back());
        begin = end + 1;
    }
    return DataFromWords(type, false, lines);
}

}  // namespace fbr
