// SPDX-License-Identifier: MIT
// Short words for the tests of the text formats.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "tools/format/Record.h"
#include "tools/format/Text.h"

namespace formats {

using fbr::Bytes;
using fbr::Record;
using fbr::WChar;
using fbr::WString;

// A record with its key written out, to compare.
struct Item {
    Record::Kind kind;
    WString key, name;
    uint32_t type = 0;
    Bytes data;
    bool operator==(const Item&) const = default;
};

inline std::vector<Item> ItemsOf(const fbr::Document& document) {
    std::vector<Item> items;
    for (const Record& r : document.records) {
        items.push_back({r.kind, document.keys[r.key], r.name, r.type, r.data});
    }
    return items;
}

inline Item KeyItem(const WString& key) {
    return {Record::Kind::kKey, key, {}, 0, {}};
}
inline Item ValueItem(const WString& key, const WString& name, uint32_t type, const Bytes& data) {
    return {Record::Kind::kValue, key, name, type, data};
}

inline std::ostream& operator<<(std::ostream& out, const Item& item) {
    const char* kinds[] = {"key", "value", "delete key", "delete value"};
    return out << kinds[static_cast<int>(item.kind)] << " [" << fbr::Printable(item.key) << "] \""
               << fbr::Printable(item.name) << "\" type " << item.type << " "
               << testing::PrintToString(item.data);
}

// Text as the bytes of a string value, without a terminator of its own.
inline Bytes Utf16(const WString& text) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    return Bytes(bytes, bytes + text.size() * 2);
}
inline Bytes Sz(WString text) {
    return Utf16(text + WString(1, 0));
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
