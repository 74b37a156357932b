#include "tools/format/ValueText.h"

#include "tests/tool/Formats.h"
#include "tools/format/TypeNames.h"

namespace {

using namespace formats;
using namespace fbr;

TEST(TypeNames, GoBothWays) {
    EXPECT_EQ(TypeName(0), "REG_NONE");
    EXPECT_EQ(TypeName(7), "REG_MULTI_SZ");
    EXPECT_EQ(TypeName(11), "REG_QWORD");
    EXPECT_EQ(TypeName(12), "type 0xc");
    EXPECT_EQ(ParseType("sz"), 1u);
    EXPECT_EQ(ParseType("REG_EXPAND_SZ"), 2u);
    EXPECT_EQ(ParseType("Qword"), 11u);
    EXPECT_EQ(ParseType("0xFFFFFFFF"), 0xFFFFFFFF);
    EXPECT_EQ(ParseType("4"), 4u);
    for (const char* wrong : {"", "string", "-1", "0x", "4294967296", "1 ", "reg_"}) {
        EXPECT_FALSE(ParseType(wrong)) << wrong;
    }
}

TEST(ValueText, ShowsDataOnOneLine) {
    const auto show = [](uint32_t type, const Bytes& data) { return DataOnOneLine(type, data, 4); };
    EXPECT_EQ(show(1, Sz(WTEXT("a\nb\u0001é"))), "a\\nb\\u0001é");
    EXPECT_EQ(show(1, {0x61, 0, 0}), "61 00 00") << "no string: an odd number of bytes";
    EXPECT_EQ(show(7, Utf16(WString(WTEXT("a\0b c\0\0"), 7))), "\"a\" \"b c\"");
    EXPECT_EQ(show(4, {0x1F, 0, 0, 0}), "31 (0x0000001f)");
    EXPECT_EQ(show(5, {0, 0, 0, 0x1F}), "31 (0x0000001f)");
    EXPECT_EQ(show(11, Bytes(8, 0xFF)), "18446744073709551615 (0xffffffffffffffff)");
    EXPECT_EQ(show(4, {1, 2}), "01 02");
    EXPECT_EQ(show(3, {1, 2, 3, 4, 5}), "01 02 03 04 ...");
    EXPECT_EQ(show(3, {}), "");
}

TEST(ValueText, ShowsDataInFull) {
    EXPECT_EQ(DataInFull(1, Sz(WTEXT("a\nb"))), "a\nb");
    EXPECT_EQ(DataInFull(7, Utf16(WString(WTEXT("a\0b\0\0"), 5))), "a\nb");
    EXPECT_EQ(DataInFull(4, {2, 0, 0, 0}), "2");
    EXPECT_EQ(DataInFull(3, Bytes(3, 0xAB)), "ab ab ab");
}

TEST(ValueText, MakesDataFromWords) {
    const auto make = [](uint32_t type, const std::vector<std::string>& words) {
        return DataFromWords(type, false, words);
    };
    EXPECT_EQ(make(1, {"é"}), Sz(WTEXT("é")));
    EXPECT_EQ(make(2, {""}), Sz(WTEXT("")));
    EXPECT_EQ(make(7, {"a", "b c"}), Utf16(WString(WTEXT("a\0b c\0\0"), 7)));
    EXPECT_EQ(make(7, {}), Sz(WTEXT("")));
    EXPECT_EQ(make(4, {"0x1F"}), (Bytes{0x1F, 0, 0, 0}));
    EXPECT_EQ(make(5, {"31"}), (Bytes{0, 0, 0, 0x1F}));
    EXPECT_EQ(make(11, {"18446744073709551615"}), Bytes(8, 0xFF));
    EXPECT_EQ(make(3, {"0102", "aB cd,ef:00"}), (Bytes{1, 2, 0xAB, 0xCD, 0xEF, 0}));
    EXPECT_EQ(make(0, {}), Bytes{});
    EXPECT_EQ(DataFromWords(1, true, {"61"}), Bytes{0x61});
}

TEST(ValueText, RefusesWordsThatDoNotFitTheType) {
    for (const auto& [type, words] :
         std::vector<std::pair<uint32_t, std::vector<std::string>>>{{1, {}},
                                                                    {1, {"a", "b"}},
                                                                    {7, {"a", ""}},
                                                                    {4, {"4294967296"}},
                                                                    {4, {"-1"}},
                                                                    {4, {"x"}},
                                                                    {11, {"18446744073709551616"}},
                                                                    {3, {"0"}},
                                                                    {3, {"0x01"}},
                                                                    {1, {"\xFF"}}}) {
        EXPECT_THROW(DataFromWords(type, false, words), DataError) << testing::PrintToString(words);
    }
}

}  // namespace
