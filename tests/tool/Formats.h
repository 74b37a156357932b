// SPDX-License-Identifier: MIT
// Short words for the tests of the text formats.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tools/format/Record.h"
#include "tools/format/Text.h"

namespace formats {

using fbr::Bytes;
using fbr::Record;
using fbr::WChar;
using fbr::WString;

inline std::string Hex(const Bytes& bytes) {
    std::string hex;
    for (const uint8_t byte : bytes)
        hex += {"0123456789abcdef"[byte / 16], "0123456789abcdef"[byte % 16]};
    return hex;
}

// A value as "KEY|NAME|TYPE|BYTES".
inline WString LineOf(const WString& key, const WString& name, uint32_t type, const Bytes& data) {
    const std::string rest = "|" + std::to_string(type) + "|" + Hex(data);
    return key + WTEXT("|") + name + WString(rest.begin(), rest.end());
}
// The records of a file, to compare: values, keys by their paths.
inline std::vector<WString> LinesOf(const fbr::Document& document) {
    std::vector<WString> lines;
    for (const Record& r : document.records)
        lines.push_back(r.kind == Record::Kind::kValue
                            ? LineOf(document.keys[r.key], r.name, r.type, r.data)
                            : document.keys[r.key]);
    return lines;
}
// In an order that two stores agree on.
inline std::vector<WString> SortedLines(const fbr::Document& document) {
    auto lines = LinesOf(document);
    std::sort(lines.begin(), lines.end());
    return lines;
}

// Text as the bytes of a string value, without a terminator of its own.
inline Bytes Utf16(const WString& text) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    return Bytes(bytes, bytes + text.size() * 2);
}

inline std::string FileUtf16(const std::string& utf8, const std::string& mark = "\xFF\xFE") {
    WString text;
    EXPECT_TRUE(fbr::FromStrictUtf8(utf8, text));
    const Bytes bytes = Utf16(text);
    return mark + std::string(bytes.begin(), bytes.end());
}

// <01> in the text of a test's file is a byte, and <text*9> the text nine times.
inline std::string WithBytes(const std::string& text, bool bytes = true) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const size_t end = text[i] == '<' ? text.find('>', i) : text.npos;
        const std::string inside = end == text.npos ? "" : text.substr(i + 1, end - i - 1);
        const size_t star = inside.rfind('*');
        if (star != inside.npos && star + 1 < inside.size()) {
            for (int n = std::stoi(inside.substr(star + 1)); n > 0; --n)
                out += inside.substr(0, star);
        } else if (bytes && inside.size() == 2) {
            out += static_cast<char>(std::stoi(inside, nullptr, 16));
        } else {
            out += text[i];
            continue;
        }
        i = end;
    }
    return out;
}

// A file of the test sources.
inline std::string Source(const std::string& name) {
    std::ifstream in(std::filesystem::path(ZRFS_SOURCE_DIR) / name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// "LINE: TEXT" of the FormatError that `read` throws.
template <typename Read>
std::string ErrorOf(Read read) {
    try {
        read();
    } catch (const fbr::FormatError& error) {
        return std::to_string(error.Line()) + ": " + error.what();
    }
    return "no error";
}

}  // namespace formats
