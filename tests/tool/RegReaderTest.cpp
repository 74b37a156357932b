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

// The one value of a key that `line` gives.
Item ReadValue(const std::string& line) {
    const auto items = Read(kHeader + "[K]\n" + line + "\n");
    EXPECT_EQ(items.size(), 2u) << line;
    return items.at(1);
}

std::string Error(const std::string& body) {
    return ErrorOf([&] { ReadReg(kHeader + body); });
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

TEST(RegReader, ReadsEveryFormOfValue) {
    EXPECT_EQ(ReadValue("@=\"x\""), ValueItem(WTEXT("K"), WTEXT(""), 1, Sz(WTEXT("x"))));
    EXPECT_EQ(ReadValue("\"\"=\"\""), ValueItem(WTEXT("K"), WTEXT(""), 1, Sz(WTEXT(""))));
    EXPECT_EQ(ReadValue(R"("a\\b\"c]=[;"="\\\"\r\n\0")"),
              ValueItem(WTEXT("K"), WTEXT("a\\b\"c]=[;"), 1, Sz(WString(WTEXT("\\\"\r\n\0"), 5))));
    EXPECT_EQ(ReadValue("  \"spaced\" \t = \t \"x\"  ; and a \"comment\""),
              ValueItem(WTEXT("K"), WTEXT("spaced"), 1, Sz(WTEXT("x"))));
    EXPECT_EQ(ReadValue("\"d\"=dword:1F"), ValueItem(WTEXT("K"), WTEXT("d"), 4, {0x1F, 0, 0, 0}));
    EXPECT_EQ(ReadValue("\"d\"=DWORD: deadBEEF ;x"),
              ValueItem(WTEXT("K"), WTEXT("d"), 4, {0xEF, 0xBE, 0xAD, 0xDE}));
    EXPECT_EQ(ReadValue("\"b\"=hex:"), ValueItem(WTEXT("K"), WTEXT("b"), 3, {}));
    EXPECT_EQ(ReadValue("\"b\"=hex:01,2,fF,"), ValueItem(WTEXT("K"), WTEXT("b"), 3, {1, 2, 255}));
}

TEST(RegReader, KeepsBytesOfEveryTypeAsTheyAre) {
    EXPECT_EQ(ReadValue("\"n\"=hex(0):61"), ValueItem(WTEXT("K"), WTEXT("n"), 0, {0x61}));
    EXPECT_EQ(ReadValue("\"n\"=hex(1):61,00,62"),
              ValueItem(WTEXT("K"), WTEXT("n"), 1, {0x61, 0, 0x62}));
    EXPECT_EQ(ReadValue("\"n\"=hex(2):25,00"), ValueItem(WTEXT("K"), WTEXT("n"), 2, {0x25, 0}));
    EXPECT_EQ(ReadValue("\"n\"=hex(7):61,62"), ValueItem(WTEXT("K"), WTEXT("n"), 7, {0x61, 0x62}));
    EXPECT_EQ(ReadValue("\"n\"=hex(FFFFFFFF):01"),
              ValueItem(WTEXT("K"), WTEXT("n"), 0xFFFFFFFF, {1}));
    EXPECT_EQ(ReadValue("\"n\"=hex(4):01"), ValueItem(WTEXT("K"), WTEXT("n"), 4, {1}));
}

TEST(RegReader, ContinuesBytesOverLinesCommentsAndBlankLines) {
    const Item expected = ValueItem(WTEXT("K"), WTEXT("b"), 3, {1, 2, 3, 4});
    EXPECT_EQ(ReadValue("\"b\"=hex:01,02,\\\n  03,04"), expected);
    EXPECT_EQ(
        ReadValue("\"b\"=hex:\\\r\n01,\\ ; note\r\n\r\n ; more\r\n\t02,03,\\\n04").data.size(), 4u);
}

// A string keeps the line ends inside it, and the lines are counted all the same.
TEST(RegReader, ReadsStringsOverSeveralLines) {
    EXPECT_EQ(ReadValue("\"s\"=\"one\r\ntwo\n\""),
              ValueItem(WTEXT("K"), WTEXT("s"), 1, Sz(WTEXT("one\r\ntwo\n"))));
    EXPECT_EQ(Error("[K]\n\"s\"=\"one\r\ntwo\"\nwrong\n").substr(0, 2), "6:");
}

TEST(RegReader, ReadsDeletions) {
    const auto items = Read(kHeader + "[-K\\gone]\n[K]\n\"v\"=-\n@ = - ; all\n");
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items[0], (Item{Record::Kind::kDeleteKey, WTEXT("K\\gone"), {}, 0, {}}));
    EXPECT_EQ(items[2], (Item{Record::Kind::kDeleteValue, WTEXT("K"), WTEXT("v"), 0, {}}));
    EXPECT_EQ(items[3], (Item{Record::Kind::kDeleteValue, WTEXT("K"), WTEXT(""), 0, {}}));
}

TEST(RegReader, ReadsKeysWithOddNames) {
    const auto key = [](const std::string& line) {
        return ItemsOf(ReadReg(kHeader + line + "\n")).at(0).key;
    };
    EXPECT_EQ(key("[]"), WTEXT(""));
    EXPECT_EQ(key("[\\K\\a\\]"), WTEXT("K\\a"));
    EXPECT_EQ(key("[K\\a]b [c] ] ; comment"), WTEXT("K\\a]b [c] "));
    EXPECT_EQ(key("[ K\\=;\" ]"), WTEXT(" K\\=;\" "));
    EXPECT_EQ(key("[\\\\u002DK\\\\\\u000Aa\\\\u000d]"), WTEXT("-K\\\na\r"));
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
    EXPECT_EQ(Error("[K]\n\"\xFF\"=-\n"),
              "4: expected UTF-8 text (or UTF-16 with a byte-order mark)");
    EXPECT_EQ(Error("@=-\n"), "3: expected a key in brackets before the first value");
    EXPECT_EQ(Error("[-K]\n@=-\n"), "4: expected a key in brackets before the first value");
    EXPECT_EQ(Error("[K\n"), "3: expected \"]\" at the end of the key");
    EXPECT_EQ(Error("[K] x\n"), "3: expected the end of the line after the key");
    EXPECT_EQ(Error("[K\\\\a]\n"), "3: expected a key name between two backslashes");
    EXPECT_EQ(Error("[K\\\\u0000]\n"), "3: expected a key name between two backslashes");
    EXPECT_EQ(Error("[-]\n"), "3: expected the key to delete after \"-\"");
    EXPECT_EQ(Error("[K]\nvalue=1\n"),
              "4: expected a key in brackets, a value name in quotes, \"@\" or a comment");
    EXPECT_EQ(Error("[K]\n\"v\" \"x\"\n"), "4: expected \"=\" after the value name");
    EXPECT_EQ(Error("[K]\n\"v\"=\"x\ny\n"), "4: expected a quote at the end of the string");
    EXPECT_EQ(Error("[K]\n\"v\"=\"c:\\dir\"\n"),
              "4: expected \\, \", n, r or 0 after a backslash in quotes");
    EXPECT_EQ(Error("[K]\n\"v\"=\"x\" y\n"), "4: expected the end of the line after the value");
    EXPECT_EQ(Error("[K]\n\"v\\0\"=-\n"), "4: expected a value name without a zero character");
    EXPECT_EQ(Error("[K]\n\"v\"=1\n").substr(0, 31), "4: expected a string in quotes,");
    EXPECT_EQ(Error("[K]\n\"v\"=dword:\n"),
              "4: expected one to eight hexadecimal digits after \"dword:\"");
    EXPECT_EQ(Error("[K]\n\"v\"=dword:123456789\n"),
              "4: expected one to eight hexadecimal digits after \"dword:\"");
    EXPECT_EQ(Error("[K]\n\"v\"=hex(g):\n"),
              "4: expected one to eight hexadecimal digits after \"hex(\"");
    EXPECT_EQ(Error("[K]\n\"v\"=hex(1:00\n"), "4: expected \"):\" after the type number");
    EXPECT_EQ(Error("[K]\n\"v\"=hex:00,0g\n"), "4: expected the end of the line after the value");
    EXPECT_EQ(Error("[K]\n\"v\"=hex:00,\\\n  gg\n"),
              "5: expected a byte of two hexadecimal digits");
    EXPECT_EQ(Error("[K]\n\"v\"=hex:00,\\\n\n"), "6: expected more bytes in the line after \"\\\"");
    EXPECT_EQ(Error("[K]\n\"v\"=hex:00,\\ x\n"), "4: expected the end of the line after \"\\\"");
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
