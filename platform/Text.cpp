// SPDX-License-Identifier: MIT
#include "platform/Text.h"

#include <algorithm>
#include <cstring>

namespace platform {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

constexpr bool IsHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool IsLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void AppendUtf8(std::string& out, char32_t c) {
    const auto tail = [&out](char32_t bits) { out += static_cast<char>(0x80 | (bits & 0x3F)); };
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        tail(c);
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        tail(c >> 6);
        tail(c);
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        tail(c >> 12);
        tail(c >> 6);
        tail(c);
    }
}

void AppendUtf16(WString& out, char32_t c) {
    if (c < 0x10000) {
        out += static_cast<WChar>(c);
        return;
    }
    out += static_cast<WChar>(0xD800 + ((c - 0x10000) >> 10));
    out += static_cast<WChar>(0xDC00 + ((c - 0x10000) & 0x3FF));
}

// The bytes that the first byte of a sequence calls for, and the range of the second one, which
// keeps out overlong forms, surrogates and what lies above U+10FFFF.
struct Lead {
    int tails;
    uint8_t low, high;
};

Lead Classify(uint8_t first) {
    if (first >= 0xC2 && first <= 0xDF) return {1, 0x80, 0xBF};
    if (first == 0xE0) return {2, 0xA0, 0xBF};
    if (first == 0xED) return {2, 0x80, 0x9F};
    if (first >= 0xE1 && first <= 0xEF) return {2, 0x80, 0xBF};
    if (first == 0xF0) return {3, 0x90, 0xBF};
    if (first >= 0xF1 && first <= 0xF3) return {3, 0x80, 0xBF};
    if (first == 0xF4) return {3, 0x80, 0x8F};
    return {0, 0, 0};
}

// Takes one character off the front of `text`. A broken sequence is taken up to the byte that
// breaks it and gives one replacement.
char32_t TakeUtf8(std::string_view& text) {
    const auto first = static_cast<uint8_t>(text[0]);
    text.remove_prefix(1);
    if (first < 0x80) return first;
    Lead lead = Classify(first);
    if (lead.tails == 0) return kReplacement;
    char32_t c = first & (0x3Fu >> lead.tails);
    for (; lead.tails > 0; --lead.tails) {
        if (text.empty()) return kReplacement;
        const auto next = static_cast<uint8_t>(text[0]);
        if (next < lead.low || next > lead.high) return kReplacement;
        c = c << 6 | (next & 0x3F);
        text.remove_prefix(1);
        lead.low = 0x80;
        lead.high = 0xBF;
    }
    return c;
}

template <class Map>
int CompareMapped(WStringView a, WStringView b, Map map) {
    const size_t common = std::min(a.size(), b.size());
    for (size_t i = 0; i < common; ++i) {
        const int difference = static_cast<uint16_t>(map(a[i])) - static_cast<uint16_t>(map(b[i]));
        if (difference != 0) return difference;
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

}  // namespace

size_t Length(const WChar* text) noexcept {
    return std::char_traits<WChar>::length(text);
}

int Compare(WStringView a, WStringView b) noexcept {
    // Paths begin alike for long: four units at a time.
    const size_t common = std::min(a.size(), b.size());
    size_t same = 0;
    while (same + 4 <= common &&
           std::memcmp(a.data() + same, b.data() + same, 4 * sizeof(WChar)) == 0)
        same += 4;
    a.remove_prefix(same);
    b.remove_prefix(same);
    return CompareMapped(a, b, [](WChar unit) { return unit; });
}

int CompareFolded(WStringView a, WStringView b) noexcept {
    return CompareMapped(a, b, Fold);
}

std::string ToUtf8(WStringView text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t c = static_cast<uint16_t>(text[i]);
        if (IsHighSurrogate(c) && i + 1 < text.size() &&
            IsLowSurrogate(static_cast<uint16_t>(text[i + 1]))) {
            c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<uint16_t>(text[++i]) - 0xDC00);
        } else if (IsHighSurrogate(c) || IsLowSurrogate(c)) {
            c = kReplacement;
        }
        AppendUtf8(out, c);
    }
    return out;
}

WString FromUtf8(std::string_view text) {
    WString out;
    out.reserve(text.size());
    while (!text.empty()) AppendUtf16(out, TakeUtf8(text));
    return out;
}

}  // namespace platform
