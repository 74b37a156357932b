#include "tools/format/RegReader.h"

#include <chrono>

#include "tests/tool/Formats.h"

namespace {

using namespace formats;
using fbr::ReadReg;

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

TEST(RegReader, TakesOldFilesForTheWesternCodePage) {
    const auto read = [](const std::string& line) {
        return ItemsOf(ReadReg("REGEDIT4\r\n[K]\r\n" + line + "\r\n")).at(1);
    };
    EXPECT_EQ(read("\"\xE9\x80\"=\"\xFC\""), ValueItem(WTEXT("K"), WTEXT("é€"), 1, Sz(WTEXT("ü"))));
    EXPECT_EQ(read("\"é\"=\"ü\""), ValueItem(WTEXT("K"), WTEXT("é"), 1, Sz(WTEXT("ü"))))
        << "UTF-8 where it is";
    EXPECT_EQ(read("\"n\"=hex(2):25,80,00"), ValueItem(WTEXT("K"), WTEXT("n"), 2, Sz(WTEXT("%€"))));
    EXPECT_EQ(read("\"n\"=hex(7):61,00,62,00,00"),
              ValueItem(WTEXT("K"), WTEXT("n"), 7, Utf16(WString(WTEXT("a\0b\0\0"), 5))));
    EXPECT_EQ(read("\"n\"=hex:61,00"), ValueItem(WTEXT("K"), WTEXT("n"), 3, {0x61, 0}));
    EXPECT_EQ(read("\"n\"=hex(0):61"), ValueItem(WTEXT("K"), WTEXT("n"), 0, {0x61}));
}

TEST(RegReader, TellsTheLineAndWhatWasExpected) {
    const std::string first =
        "1: expected \"Windows Registry Editor Version 5.00\" or \"REGEDIT4\" as the first line";
    EXPECT_EQ(ErrorOf([] { ReadReg(""); }), first);
    EXPECT_EQ(ErrorOf([] { ReadReg("[K]\n"); }), first);
    EXPECT_EQ(ErrorOf([] {
                  ReadReg(
                      "\xFF\xFE"
                      "W");
              }),
              "1: expected UTF-16 text with an even number of bytes");
}

// Whatever the input, the reader ends with a document or an error: every prefix of a file with all
// forms in it, and that file with each byte changed.
TEST(RegReader, SurvivesDamage) {
    const std::string whole = kHeader +
                              "; c\n[K\\\\\\u000A]\n@=\"a\\\\\"\n\"d\"=dword:0000001f\n"
                              "\"h\"=hex(7):61,00,\\\n  00,00\n\"x\"=-\n[-K\\b]\n";
    const auto tryRead = [](const std::string& bytes) {
        try {
            return ReadReg(bytes).records.size() < 20;
        } catch (const fbr::FormatError& error) {
            return error.Line() >= 1 && error.Line() <= 20;
        }
    };
    for (const std::string& file : {whole, FileUtf16(whole)}) {
        for (size_t i = 0; i <= file.size(); ++i) EXPECT_TRUE(tryRead(file.substr(0, i))) << i;
        for (size_t i = 0; i < file.size(); ++i) {
            for (const char change : {'\0', '"', '\\', '[', '\n', '\xFF', ','}) {
                std::string damaged = file;
                damaged[i] = change;
                EXPECT_TRUE(tryRead(damaged)) << i;
            }
        }
    }
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

}  // namespace
