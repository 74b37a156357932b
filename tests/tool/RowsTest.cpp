// SPDX-License-Identifier: MIT
// The rows of formats/reg.txt and formats/json.txt: LINE == ITEM is read and written, LINE => ITEM
// only read, and TEXT !! ERROR is what the reader tells, or its beginning. An item is a value of
// the key K, NAME|TYPE|BYTES, or, where the line begins with "[", the path of a key. The rows of
// formats/values.txt are told there.
#include <sstream>

#include "tests/tool/Formats.h"
#include "tools/format/JsonLines.h"
#include "tools/format/RegReader.h"
#include "tools/format/RegWriter.h"
#include "tools/format/TypeNames.h"
#include "tools/format/ValueText.h"

namespace {

using namespace formats;

struct Row {
    std::string left, sign, right;
};

std::vector<Row> RowsOf(const std::string& name) {
    std::vector<Row> rows;
    std::istringstream in(Source("tests/tool/formats/" + name));
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        size_t at = std::string::npos;
        for (const char* sign : {" ==", " =>", " !!"}) at = std::min(at, line.find(sign));
        rows.push_back({WithBytes(line.substr(0, at)), line.substr(at + 1, 2),
                        WithBytes(line.substr(std::min(line.size(), at + 4)))});
    }
    EXPECT_GT(rows.size(), 5u);
    return rows;
}

WString Wide(const std::string& utf8) {
    WString text;
    EXPECT_TRUE(fbr::FromStrictUtf8(utf8, text));
    return text;
}

Bytes BytesOf(const std::string& hex) {
    Bytes bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

Item ItemIn(const Row& row) {
    if (row.left[0] == '[') return KeyItem(Wide(row.right));
    const size_t data = row.right.rfind('|'), type = row.right.rfind('|', data - 1);
    return ValueItem(WTEXT("K"), Wide(row.right.substr(0, type)),
                     static_cast<uint32_t>(std::stoul(row.right.substr(type + 1))),
                     BytesOf(row.right.substr(data + 1)));
}

// The line between the file's first one and its end.
std::string Written(const Item& item) {
    std::ostringstream out;
    fbr::RegWriter writer(out, {});
    if (item.kind == Record::Kind::kKey) writer.Key(item.key);
    if (item.kind == Record::Kind::kValue) writer.Value(item.name, item.type, item.data);
    writer.Finish();
    std::string text =
        fbr::Utf8(fbr::DecodeTextFile(out.str(), [](std::string_view) { return false; }));
    text = text.substr(text.find("\r\n") + 2);
    return text.substr(item.kind == Record::Kind::kKey ? 2 : 0,
                       text.size() - (item.kind == Record::Kind::kKey ? 6 : 4));
}

TEST(Rows, OfRegFiles) {
    const std::string header = "Windows Registry Editor Version 5.00\n\n";
    for (const Row& row : RowsOf("reg.txt")) {
        SCOPED_TRACE(row.left + " " + row.sign + " " + row.right);
        if (row.sign == "!!") {
            EXPECT_TRUE(ErrorOf([&] { fbr::ReadReg(header + row.left); }).starts_with(row.right));
            continue;
        }
        const bool key = row.left[0] == '[';
        const auto items = ItemsOf(fbr::ReadReg(header + (key ? "" : "[K]\n") + row.left + "\n"));
        ASSERT_EQ(items.size(), key ? 1u : 2u);
        EXPECT_EQ(items.back(), ItemIn(row));
        if (row.sign == "==") {
            EXPECT_EQ(Written(ItemIn(row)), row.left);
        }
    }
}

TEST(Rows, OfOldRegFiles) {
    for (const Row& row : RowsOf("regedit4.txt"))
        EXPECT_EQ(ItemsOf(fbr::ReadReg("REGEDIT4\r\n[K]\r\n" + row.left + "\r\n")).at(1),
                  ItemIn(row));
}

TEST(Rows, OfJsonLines) {
    for (const Row& row : RowsOf("json.txt"))
        EXPECT_EQ(ErrorOf([&] { fbr::ReadJsonLines("{\"key\":\"\"}\n" + row.left); }), row.right);
}

// What a row of values.txt comes to, by its left side; "!!" is a refusal.
std::string Answer(const std::string& left) {
    const size_t first = left.find(' '), second = left.find(' ', first + 1);
    const std::string verb = left.substr(0, first), word = left.substr(first + 1);
    if (verb == "parse") {
        const auto type = fbr::ParseType(word);
        return type ? std::to_string(*type) : "!!";
    }
    const auto type = static_cast<uint32_t>(std::stoul(word));
    const std::string rest = second == left.npos ? "" : left.substr(second + 1);
    if (verb == "name") return fbr::TypeName(type);
    if (verb == "show") return fbr::DataOnOneLine(type, BytesOf(rest), 4);
    if (verb == "full") return fbr::DataInFull(type, BytesOf(rest));
    std::vector<std::string> words;
    for (const char c : rest) {
        if (c == '|')
            words.emplace_back();
        else
            words.back() += c;
    }
    try {
        std::string hex;
        for (const uint8_t byte : fbr::DataFromWords(type, verb == "bytes", words))
            hex += {"0123456789abcdef"[byte / 16], "0123456789abcdef"[byte % 16]};
        return hex;
    } catch (const fbr::DataError&) {
        return "!!";
    }
}

TEST(Rows, OfValues) {
    for (const Row& row : RowsOf("values.txt"))
        EXPECT_EQ(Answer(row.left), row.sign == "!!" ? row.sign : row.right) << row.left;
}

}  // namespace
