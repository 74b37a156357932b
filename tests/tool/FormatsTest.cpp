// SPDX-License-Identifier: MIT
// The text formats as a whole: encodings, what goes round, and files that are damaged. Single forms
// and errors are rows, see RowsTest.cpp; layouts are in the sessions.
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

std::vector<WString> Read(const std::string& bytes) {
    return LinesOf(ReadReg(bytes));
}

TEST(RegReader, ReadsEveryEncodingAndLineEnd) {
    const std::vector<WString> expected = {WTEXT("K\\Ä€😀"), WTEXT("K\\Ä€😀|ä|1|3dd800deac200000"),
                                           WTEXT("K\\b")};
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
    const std::string first =
        "1: expected \"Windows Registry Editor Version 5.00\" or \"REGEDIT4\" as the first line";
    for (const char* bytes : {"", "[K]\n"}) EXPECT_EQ(ErrorOf([&] { ReadReg(bytes); }), first);
    EXPECT_EQ(ErrorOf([] { ReadReg("\xFF\xFEW"); }),
              "1: expected UTF-16 text with an even number of bytes");
    EXPECT_EQ(LinesOf(ReadJsonLines("\xEF\xBB\xBF{\"key\":\"\"}\r\n\n")).size(), 1u);
}

TEST(RegWriter, TheWholeCodePageGoesRound) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte) all += static_cast<char>(byte);
    WString text;
    fbr::AppendAnsi(text, all);
    EXPECT_TRUE(fbr::IsAnsi(text));
    EXPECT_EQ(fbr::Ansi(text), all);
    EXPECT_FALSE(fbr::IsAnsi(WTEXT("\u0100")));
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
        std::vector<WString> items;
        WString key;
        std::ostringstream reg, lines;
        RegWriter regWriter(reg, {});
        JsonLinesWriter lineWriter(lines, {});
        for (int i = 0; i < 20; ++i) {
            const WString name = RandomName(random, i % 5 == 0);
            if (i % 5 == 0) {
                key = name;
                if (i % 2 == 0) key.append(WTEXT("\\")).append(name);
                items.push_back(key);
                regWriter.Key(key);
                lineWriter.Key(key);
                continue;
            }
            const Bytes data = random() % 2 ? Utf16(RandomName(random, false) + WString(1, 0))
                                            : Bytes(random() % 90);
            const auto type = static_cast<uint32_t>(random() % 13);
            items.push_back(LineOf(key, name, type, data));
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
        ASSERT_EQ(LinesOf(ReadReg(reg.str())), items);
        ASSERT_EQ(LinesOf(ReadJsonLines(lines.str())), items);
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
