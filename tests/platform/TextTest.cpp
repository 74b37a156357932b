#include "platform/Text.h"

#include <gtest/gtest.h>

namespace {

using platform::FromUtf8;
using platform::ToUtf8;
using platform::WString;

TEST(Text, ConvertsEveryLengthOfSequenceBothWays) {
    const WString wide = WTEXT("a\u00E9\u20AC\U0001F600z");
    const std::string narrow = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";
    EXPECT_EQ(ToUtf8(wide), narrow);
    EXPECT_EQ(FromUtf8(narrow), wide);
    const WString withZero(WTEXT("a\0b"), 3);
    EXPECT_EQ(FromUtf8(ToUtf8(withZero)), withZero);
}

TEST(Text, GoesThroughUtf8UnchangedForEveryUnitThatIsNoSurrogate) {
    WString all;
    for (uint32_t unit = 0; unit < 0x10000; ++unit) {
        if (unit < 0xD800 || unit > 0xDFFF) all += static_cast<platform::WChar>(unit);
    }
    EXPECT_EQ(FromUtf8(ToUtf8(all)), all);
}

TEST(Text, ReplacesLoneSurrogates) {
    const std::string replaced = "\xEF\xBF\xBD";
    EXPECT_EQ(ToUtf8(WString{0xD83D}), replaced);
    EXPECT_EQ(ToUtf8(WString{0xDE00, 'x'}), replaced + "x");
    EXPECT_EQ(ToUtf8(WString{0xD83D, 'x', 0xDE00}), replaced + "x" + replaced);
    EXPECT_EQ(ToUtf8(WString{0xD83D, 0xD83D, 0xDE00}), replaced + "\xF0\x9F\x98\x80");
}

TEST(Text, ReplacesBadBytesAndGoesOnBehindThem) {
    const struct {
        const char* what;
        std::string bytes;
        WString text;
    } cases[] = {
        {"a tail alone", "\x80x", WTEXT("\uFFFDx")},
        {"a cut sequence at the end", "x\xE2\x82", WTEXT("x\uFFFD")},
        {"a sequence cut by a letter", "\xE2\x82x", WTEXT("\uFFFDx")},
        {"a sequence cut by another", "\xE2\xC3\xA9", WTEXT("\uFFFD\u00E9")},
        {"an overlong form", "\xC0\xAF", WTEXT("\uFFFD\uFFFD")},
        {"a surrogate", "\xED\xA0\x80", WTEXT("\uFFFD\uFFFD\uFFFD")},
        {"above the last character", "\xF4\x90\x80\x80", WTEXT("\uFFFD\uFFFD\uFFFD\uFFFD")},
        {"a byte that never occurs", "\xFFx", WTEXT("\uFFFDx")},
    };
    for (const auto& c : cases) EXPECT_EQ(FromUtf8(c.bytes), c.text) << c.what;
}

TEST(Text, FoldsOnlyAToZ) {
    EXPECT_EQ(platform::CompareFolded(WTEXT("AZ[\u00C9"), WTEXT("az[\u00C9")), 0);
    EXPECT_NE(platform::CompareFolded(WTEXT("\u00C9"), WTEXT("\u00E9")), 0);
    EXPECT_NE(platform::CompareFolded(WTEXT("@"), WTEXT("`")), 0);
    EXPECT_NE(platform::Compare(WTEXT("A"), WTEXT("a")), 0);
}

TEST(Text, OrdersByUnitAndThenByLength) {
    EXPECT_LT(platform::Compare(WTEXT("B"), WTEXT("a")), 0);
    EXPECT_GT(platform::CompareFolded(WTEXT("B"), WTEXT("a")), 0);
    EXPECT_LT(platform::Compare(WTEXT("a"), WTEXT("ab")), 0);
    EXPECT_GT(platform::Compare(WTEXT("ab"), WTEXT("a")), 0);
    EXPECT_GT(platform::Compare(WTEXT("\uFFFE"), WTEXT("a")), 0) << "units have no sign";
    // '_' lies between the upper and the lower letters: the fold comes before the comparison.
    EXPECT_GT(platform::CompareFolded(WTEXT("A"), WTEXT("_")), 0);
    EXPECT_EQ(platform::Compare({}, {}), 0);
}

TEST(Printable, HasTheTableOfTheRunTime) {
    int printable = 0;
    for (uint32_t unit = 0; unit < 0x10000; ++unit) {
        if (platform::IsPrintable(static_cast<platform::WChar>(unit))) ++printable;
    }
    EXPECT_EQ(printable, 50060);
    for (const uint16_t unit : {0x20, 0x7E, 0xA1, 0xAD, 0x3042, 0x4E00, 0xAC00, 0xFEFF}) {
        EXPECT_TRUE(platform::IsPrintable(static_cast<platform::WChar>(unit))) << std::hex << unit;
    }
    for (const uint16_t unit :
         {0, 9, 10, 0x1F, 0x7F, 0xA0, 0x300, 0x2028, 0x20AC, 0xD800, 0xE000, 0xFFFD, 0xFFFF}) {
        EXPECT_FALSE(platform::IsPrintable(static_cast<platform::WChar>(unit))) << std::hex << unit;
    }
}

}  // namespace
