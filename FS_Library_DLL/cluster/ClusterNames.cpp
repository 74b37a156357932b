// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/ClusterNames.h"

#include <algorithm>
#include <random>

#include <fmt/format.h>

using platform::WChar;

namespace cluster {
namespace {

bool IsHigh(WChar unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}
bool IsLow(WChar unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}
bool IsControl(WChar unit) {
    return unit < ' ' || (unit >= 0x7F && unit < 0xA0);
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// The unit of an escape that `text` begins with, and its length; 0 for none.
size_t ReadEscape(std::string_view text, WChar* unit) {
    const bool isLong = text.size() > 1 && text[1] == 'u';
    const size_t first = isLong ? 2 : 1, end = first + (isLong ? 4 : 2);
    if (text.size() < end) return 0;
    int value = 0;
    for (size_t i = first; i < end; ++i) {
        const int digit = HexDigit(text[i]);
        if (digit < 0) return 0;
        value = value * 16 + digit;
    }
    *unit = static_cast<WChar>(value);
    return end;
}

// A slash ends the name of a value where its pieces hang below it.
std::string WithoutSlash(const std::string& name) {
    std::string text;
    for (const char c : name)
        if (c == '/')
            text += "%2F";
        else
            text += c;
    return text;
}

}  // namespace

std::string NameText(WStringView name) {
    std::string text;
    text.reserve(name.size() + 8);
    for (size_t i = 0; i < name.size(); ++i) {
        const WChar unit = name[i];
        const bool isPair = IsHigh(unit) && i + 1 < name.size() && IsLow(name[i + 1]);
        if (unit == '%' || IsControl(unit))
            text += fmt::format("%{:02X}", static_cast<unsigned>(unit));
        else if (unit < 0x7F)
            text += static_cast<char>(unit);
        else if (!isPair && (IsHigh(unit) || IsLow(unit)))
            text += fmt::format("%u{:04X}", static_cast<unsigned>(unit));
        else
            text += platform::ToUtf8(name.substr(i, isPair ? 2 : 1));
        i += isPair ? 1 : 0;
    }
    return text;
}

std::string FoldedText(WStringView name) {
    WString folded(name);
    for (WChar& unit : folded) unit = platform::Fold(unit);
    return NameText(folded);
}

bool ReadName(std::string_view text, WString* name) {
    name->clear();
    for (size_t at = 0; at < text.size();) {
        const size_t mark = std::min(text.find('%', at), text.size());
        *name += platform::FromUtf8(text.substr(at, mark - at));
        if (mark == text.size()) break;
        WChar unit = 0;
        const size_t length = ReadEscape(text.substr(mark), &unit);
        if (length == 0) return false;
        *name += unit;
        at = mark + length;
    }
    // A caller takes a zero for the end. One way to write each name.
    return name->find(WChar{0}) == WString::npos && NameText(*name) == text;
}

std::string NewId() {
    static thread_local std::random_device random;
    return fmt::format("{:08x}{:08x}", random(), random());
}

bool IsId(std::string_view text) {
    if (text == kRootId) return true;
    return text.size() == 16 && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
}

std::string RecordNames::Piece(const std::string& id, const std::string& name,
                               const std::string& pieces, uint64_t index) const {
    return fmt::format("{}{}/{}/{:05}", Below("d", id), WithoutSlash(name), pieces, index);
}

std::vector<Span> RecordNames::PiecesBeside(const std::string& id, const std::string& name,
                                            const std::string& pieces) const {
    const Span all = AllBelow(Below("d", id) + WithoutSlash(name) + '/');
    if (pieces.empty()) return {all};
    const Span kept = AllBelow(all.from + pieces + '/');
    return {{all.from, kept.from}, {kept.to, all.to}};
}

std::string RestOf(const std::string& key, const Span& span) {
    return key.starts_with(span.from) ? key.substr(span.from.size()) : "";
}

}  // namespace cluster
