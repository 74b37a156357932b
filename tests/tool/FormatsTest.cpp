// SPDX-License-Identifier: MIT
// The text formats as a whole: layout, encodings, what goes round, and files that are damaged.
// Single forms and errors are rows, see RowsTest.cpp.
#include <nlohmann/json.hpp>

#include <chrono>
#include <functional>
#include <random>
#include <sstream>

#include "tests/tool/Formats.h"
#include "tools/format/JsonLines.h"
#include "tools/format/RegReader.h"
#include "tools/format/RegWriter.h"

namespace {

using namespace formats;
using fbr::JsonLinesWriter;
using fbr::ReadJsonLines;
using fbr::ReadReg;
using fbr::RegWriter;

const std::string kHeader = "Windows Registry Editor Version 5.00\n\n";

std::vector<Item> Read(const std::string& bytes) {
    return ItemsOf(ReadReg(bytes));
}

TEST(RegReader, ReadsEveryEncodingAndLineEnd) {
    const std::vector<Item> expected = {
        KeyItem(WTEXT("K\\Ä€😀")), ValueItem(WTEXT("K\\Ä€😀"), WTEXT("ä"), 1, Sz(WTEXT("😀\u20AC"))),
        KeyItem(WTEXT("K\\b"))};
    const std::string unix = kHeader + "[K\\Ä€😀]\n\"ä\"=\"😀€\"\n\n[K\\b]\n";
    std::string dos;
    for (const char c : unix) dos += c == '\n' ? "\r\n" : std::string(1, c);

    for (const std::string& text : {unix, dos}) {
        EXPECT_EQ(Read(text), expected);
        EXPECT_EQ(Read("\xEF\xBB\xBF" + text), expected);
        EXPECT_EQ(Read(FileUtf16(text)), expected);
        EXPECT_EQ(Read(FileUtf16(text, "")), expected);
        std::string swapped = FileUtf16(text);
        for (size_t i = 0; i < swapped.size(); i += 2) std::swap(swapped[i], swapped[i + 1]);
        EXPECT_EQ(Read(swapped), expected);
    }
}

TEST(RegReader, ReadsDeletions) {
    const auto items = Read(kHeader + "[-K\\gone]\n[K]\n\"v\"=-\n@ = - ; all\n");
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items[0], (Item{Record::Kind::kDeleteKey, WTEXT("K\\gone"), {}, 0, {}}));
    EXPECT_EQ(items[2], (Item{Record::Kind::kDeleteValue, WTEXT("K"), WTEXT("v"), 0, {}}));
    EXPECT_EQ(items[3], (Item{Record::Kind::kDeleteValue, WTEXT("K"), WTEXT(""), 0, {}}));
}

TEST(RegReader, TellsTheLineAndWhatWasExpected) {
    const std::string first =
        "1: expected \"Windows Registry Editor Version 5.00\" or \"REGEDIT4\" as the first line";
    for (const char* bytes : {"", "[K]\n"}) EXPECT_EQ(ErrorOf([&] { ReadReg(bytes); }), first);
    EXPECT_EQ(ErrorOf([] { ReadReg(std::string("\xFF\xFE") + "W"); }),
              "1: expected UTF-16 text with an even number of bytes");
}

// Inputs that make a careless reader look again and again over what it has seen.
TEST(RegReader, TakesTimeInProportionToTheFile) {
    const auto repeated = [](const std::string& text) {
        std::string out;
        while (out.size() < 2'000'000) out += text;
        return out;
    };
    const auto start = std::chrono::steady_clock::now();
    for (const std::string& body :
         {"[" + repeated("["), "[" + repeated("\\a"), repeated("[a\n"), repeated("[a]\n"),
          "[K]\n\"" + repeated("x"), "[K]\n\"" + repeated("\\\\"), "[K]\n" + repeated("\"=\n"),
          "[K]\n\"v\"=hex:" + repeated("00,\\\n"), "[K]\n\"v\"=hex:00,\\\n" + repeated(" ;\n"),
          repeated("\n"), repeated(" "), repeated(";")}) {
        ErrorOf([&] { ReadReg(kHeader + body); });
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}

// What the writer makes of what `write` gives it, in UTF-8, without the byte-order mark.
template <typename Write>
std::string Written(Write write, const WString& prefix = {}) {
    std::ostringstream out;
    RegWriter writer(out, prefix);
    write(writer);
    writer.Finish();
    const std::string bytes = out.str();
    EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE");
    return fbr::Utf8(fbr::DecodeTextFile(bytes, [](std::string_view) { return false; }));
}

std::string ValueLine(const WString& name, uint32_t type, const Bytes& data) {
    const std::string text = Written([&](RegWriter& writer) { writer.Value(name, type, data); });
    const std::string header = "Windows Registry Editor Version 5.00\r\n";
    return text.substr(header.size(), text.size() - header.size() - 4);
}

TEST(RegWriter, LaysOutKeysAndEnds) {
    EXPECT_EQ(Written(
                  [](RegWriter& writer) {
                      writer.Key(WTEXT(""));
                      writer.Value(WTEXT(""), 1, Sz(WTEXT("x")));
                      writer.Value(WTEXT("(Default)"), 1, Sz(WTEXT("y")));
                      writer.Key(WTEXT("a\\b"));
                      writer.DeleteValue(WTEXT("v"));
                      writer.DeleteKey(WTEXT("a\\c"));
                  },
                  WTEXT("HKEY_CURRENT_USER\\Software")),
              "Windows Registry Editor Version 5.00\r\n"
              "\r\n[HKEY_CURRENT_USER\\Software]\r\n@=\"x\"\r\n\"(Default)\"=\"y\"\r\n"
              "\r\n[HKEY_CURRENT_USER\\Software\\a\\b]\r\n\"v\"=-\r\n"
              "\r\n[-HKEY_CURRENT_USER\\Software\\a\\c]\r\n\r\n");
}

// The lines that regedit wraps: it breaks behind the comma that reaches column 77, and continued
// lines hold 25 bytes. The lengths are what it writes for names of these lengths.
TEST(RegWriter, WrapsBytesWhereRegeditDoes) {
    const std::pair<size_t, size_t> kFirstLines[] = {{1, 78},  {2, 79},  {3, 80},  {4, 78},
                                                     {67, 78}, {68, 79}, {69, 80}, {70, 81},
                                                     {71, 82}, {84, 95}};
    for (const auto& [nameLength, lineLength] : kFirstLines) {
        const std::string text = ValueLine(WString(nameLength, WChar('n')), 3, Bytes(60));
        EXPECT_EQ(text.find("\r\n"), lineLength) << nameLength;
        EXPECT_EQ(text.substr(lineLength - 4, 9), "00,\\\r\n  0") << nameLength;
        const size_t second = text.find("\r\n", lineLength + 2);
        EXPECT_EQ(second - lineLength - 2, 78u) << nameLength;
    }
    EXPECT_EQ(ValueLine(WTEXT("n"), 3, Bytes(23)).find('\\'), std::string::npos)
        << "ends at column 77";
    EXPECT_NE(ValueLine(WTEXT("n"), 3, Bytes(24)).find('\\'), std::string::npos);
}

TEST(JsonLines, WritesOneObjectALine) {
    std::ostringstream out;
    JsonLinesWriter(out, WTEXT("P\\Q")).Key(WTEXT("a"));
    JsonLinesWriter writer(out, {});
    writer.Key(WTEXT(""));
    writer.Value(WTEXT("(Default)"), 4, {1, 0xAB, 0, 0});
    writer.Key(WTEXT("a\\b"));
    writer.Value(WTEXT("\"\\\n\u0001é😀"), 0xFFFFFFFF, {});
    writer.Value(WString(1, 0xDC00), 1, {});
    EXPECT_EQ(out.str(),
              "{\"key\":\"\\\\P\\\\Q\\\\a\"}\n{\"key\":\"\"}\n"
              "{\"key\":\"\",\"name\":\"(Default)\",\"type\":4,\"data\":\"01ab0000\"}\n"
              "{\"key\":\"\\\\a\\\\b\"}\n"
              "{\"key\":\"\\\\a\\\\b\",\"name\":\"\\\"\\\\\\n\\u0001é😀\",\"type\":4294967295,"
              "\"data\":\"\"}\n"
              "{\"key\":\"\\\\a\\\\b\",\"name\":\"\\udc00\",\"type\":1,\"data\":\"\"}\n");
}

TEST(JsonLines, ReadsAnyOrderSpacingAndEscape) {
    const std::vector<Item> expected = {KeyItem(WTEXT("")),
                                        ValueItem(WTEXT("a\\b"), WTEXT("n/é😀\t"), 7, {0xAB, 0xCD}),
                                        ValueItem(WTEXT("a\\b"), WTEXT(""), 0, {})};
    EXPECT_EQ(ItemsOf(ReadJsonLines(
                  "\xEF\xBB\xBF { \"key\" : \"\" }\r\n\n"
                  "{\"data\":\"ABcd\",\"type\": 7 , \"name\":\"n\\/\\u00e9\\uD83D\\ude00\\t\","
                  "\"key\":\"\\\\a\\\\b\"}\n"
                  "{\"key\":\"\\u005ca\\\\b\",\"name\":\"\",\"type\":0,\"data\":\"\"}")),
              expected);
}

WString RandomName(std::mt19937& random, bool key) {
    const WString kOdd = WTEXT("\r\n\t\"\\[]-;@=:u#/ \u0001\u007f\u00e9\u20ac\U0001F600\uffff");
    WString name;
    for (size_t n = 1 + random() % 8; n > 0; --n) {
        WString::value_type unit =
            random() % 4 ? kOdd[random() % kOdd.size()] : 1 + random() % 0xFFFF;
        if (key && unit == '\\') unit = 'x';
        name += unit;
    }
    return name;
}

// Names of any units and data of any bytes come back from our own readers as they went out, and
// what UTF-8 can carry is JSON to a reader that is not ours.
TEST(Formats, RoundTrip) {
    std::mt19937 random(20260101);
    int parsed = 0;
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE(round);
        std::vector<Item> items;
        std::ostringstream reg, lines;
        RegWriter regWriter(reg, {});
        JsonLinesWriter lineWriter(lines, {});
        for (int i = 0; i < 20; ++i) {
            const WString name = RandomName(random, i % 5 == 0);
            if (i % 5 == 0) {
                items.push_back(KeyItem(i % 2 ? name : name + WTEXT("\\") + name));
                regWriter.Key(items.back().key);
                lineWriter.Key(items.back().key);
                continue;
            }
            const Bytes data = random() % 2 ? Sz(RandomName(random, false)) : Bytes(random() % 90);
            const auto type = static_cast<uint32_t>(random() % 13);
            items.push_back(ValueItem(items.back().key, name, type, data));
            regWriter.Value(name, type, data);
            lineWriter.Value(name, type, data);
            bool lone = false;
            for (size_t k = 0; k < name.size(); ++k) lone |= fbr::IsLoneSurrogate(name, k);
            const std::string text = lines.str();
            const size_t last = text.rfind('\n', text.size() - 2) + 1;
            const auto json = nlohmann::json::parse(text.substr(last), nullptr, false);
            if (lone || json.is_discarded()) continue;
            EXPECT_EQ(json.value("name", "none"), fbr::Utf8(name));
            ++parsed;
        }
        regWriter.Finish();
        ASSERT_EQ(ItemsOf(ReadReg(reg.str())), items);
        ASSERT_EQ(ItemsOf(ReadJsonLines(lines.str())), items);
    }
    EXPECT_GT(parsed, 1000);
}

// Whatever the input, a reader ends with a document or an error: every prefix of a file with all
// forms in it, and that file with each byte changed.
TEST(Formats, SurviveDamage) {
    const std::string reg = kHeader +
                            "; c\n[K\\\\\\u000A]\n@=\"a\\\\\"\n\"d\"=dword:0000001f\n"
                            "\"h\"=hex(7):61,00,\\\n  00,00\n\"x\"=-\n[-K\\b]\n";
    const std::string lines =
        "{\"key\":\"\\\\a\\\\b\",\"name\":\"\\u00e9é\",\"type\":42,\"data\":\"00ff\"}\n";
    const auto tryRead = [&](const std::string& whole, const std::string& bytes) {
        try {
            return (whole == lines ? ReadJsonLines(bytes) : ReadReg(bytes)).records.size() < 20;
        } catch (const fbr::FormatError& error) {
            return error.Line() >= 1 && error.Line() <= 20;
        }
    };
    for (const std::string& file : {reg, FileUtf16(reg), lines})
        for (size_t i = 0; i < file.size(); ++i) {
            EXPECT_TRUE(tryRead(file, file.substr(0, i))) << i;
            for (const char change : {'\0', '"', '\\', '[', '{', '\n', '\xFF', ',', 'u'}) {
                std::string damaged = file;
                damaged[i] = change;
                EXPECT_TRUE(tryRead(file, damaged)) << i;
            }
        }
}

}  // namespace
