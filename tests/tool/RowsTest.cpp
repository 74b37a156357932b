// SPDX-License-Identifier: MIT
// The rows of formats/reg.txt and formats/json.txt: LINE == ITEM is read and written, LINE => ITEM
// only read, and TEXT !! ERROR is what the reader tells, or its beginning. An item is a value of
// the key K, NAME|TYPE|BYTES, or, where the line begins with "[", the path of a key. The rows of
// formats/values.txt are told there.
#include <sstream>

#include "tests/support/ScriptText.h"
#include "tests/tool/Formats.h"
#include "tools/format/JsonLines.h"
#include "tools/format/Matching.h"
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

// The last record as the writer has it, between the file's first line and its end.
std::string Written(const fbr::Document& document) {
    const Record& record = document.records.back();
    const bool key = record.kind == Record::Kind::kKey;
    std::ostringstream out;
    fbr::RegWriter writer(out, {});
    if (key)
        writer.Key(document.keys[record.key]);
    else
        writer.Value(record.name, record.type, record.data);
    writer.Finish();
    EXPECT_TRUE(out.str().starts_with("\xFF\xFE"));
    std::string text =
        fbr::Utf8(fbr::DecodeTextFile(out.str(), [](std::string_view) { return false; }));
    text = text.substr(text.find("\r\n") + 2);
    return text.substr(key ? 2 : 0, text.size() - (key ? 6 : 4));
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
        const auto document = fbr::ReadReg(header + (key ? "" : "[K]\n") + row.left + "\n");
        ASSERT_EQ(document.records.size(), key ? 1u : 2u);
        EXPECT_EQ(LinesOf(document).back(), Wide((key ? "" : "K|") + row.right));
        if (row.sign == "==") {
            EXPECT_EQ(Written(document), row.left);
        }
    }
}

TEST(Rows, OfOldRegFiles) {
    for (const Row& row : RowsOf("regedit4.txt"))
        EXPECT_EQ(LinesOf(fbr::ReadReg("REGEDIT4\r\n[K]\r\n" + row.left + "\r\n")).at(1),
                  Wide("K|" + row.right));
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
    if (verb == "since") {
        const auto moment = fbr::ParseMoment(word, 1'000'000'000);
        return moment ? std::to_string(*moment) : "!!";
    }
    const auto type = static_cast<uint32_t>(std::stoul(word));
    const std::string rest = second == left.npos ? "" : left.substr(second + 1);
    if (verb == "name") return fbr::TypeName(type);
    if (verb == "show") return fbr::DataOnOneLine(type, support::DataOf(rest), 4);
    if (verb == "full") return fbr::DataInFull(type, support::DataOf(rest));
    std::vector<std::string> words;
    for (const char c : rest) {
        if (c == '|')
            words.emplace_back();
        else
            words.back() += c;
    }
    try {
        return Hex(fbr::DataFromWords(type, verb == "bytes", words));
    } catch (const fbr::DataError&) {
        return "!!";
    }
}

TEST(Rows, OfValues) {
    for (const Row& row : RowsOf("values.txt"))
        EXPECT_EQ(Answer(row.left), row.sign == "!!" ? row.sign : row.right) << row.left;
}

}  // namespace
