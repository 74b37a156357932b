#include "tests/storage/namespace/Store.h"

namespace tests {

struct PatternCase {
    const WChar* pattern;
    const WChar* name;
    bool matches;
};

TEST(Pattern, MatchesWithoutFullBacktracking) {
    const PatternCase cases[] = {
        {WTEXT("*aab"), WTEXT("aab"), true},
        {WTEXT("*aab"), WTEXT("aaab"), false},
        {WTEXT("*issip*"), WTEXT("mississippi"), false},
        {WTEXT("m*iss*ippi"), WTEXT("mississippi"), true},
        {WTEXT("*"), WTEXT(""), true},
        {WTEXT("*"), WTEXT("any name"), true},
        {WTEXT("*.*"), WTEXT("any name"), true},
        {WTEXT("*.*"), WTEXT("a.b"), true},
        {WTEXT("abc."), WTEXT("abc"), true},
        {WTEXT("abc."), WTEXT("abc.d"), false},
        {WTEXT("abc.*"), WTEXT("abc"), true},
        {WTEXT("a?"), WTEXT("a"), false},
        {WTEXT("a?"), WTEXT("ab"), true},
        {WTEXT("?"), WTEXT(""), false},
        {WTEXT("*."), WTEXT("ab.c"), false},
        {WTEXT("*.y"), WTEXT("xy"), false},
        {WTEXT("*?"), WTEXT("x"), true},
        {WTEXT("*??"), WTEXT("x"), false},
        {WTEXT("*?x"), WTEXT("aax"), true},
        {WTEXT("a**b"), WTEXT("ab"), true},
        {WTEXT("**"), WTEXT("a"), true},
        {WTEXT("a"), WTEXT("ab"), false},
        {WTEXT("ab"), WTEXT("a"), false},
        {WTEXT(""), WTEXT("a"), false},
        {WTEXT(""), WTEXT(""), true},
        {WTEXT("."), WTEXT("."), true},
        {WTEXT("*"), WTEXT(".."), true},
    };
    for (const PatternCase& c : cases)
        EXPECT_EQ(MatchPattern(c.name, c.pattern, false), c.matches)
            << platform::ToUtf8(c.pattern) << " on " << platform::ToUtf8(c.name);
}

TEST(Pattern, FoldsOnlyAToZ) {
    EXPECT_TRUE(MatchPattern(WTEXT("KEY"), WTEXT("k?Y"), false));
    EXPECT_FALSE(MatchPattern(WTEXT("KEY"), WTEXT("k?Y"), true));
    EXPECT_FALSE(MatchPattern(WTEXT("\u00C4"), WTEXT("\u00E4"), false));
    EXPECT_FALSE(MatchPattern(WTEXT("["), WTEXT("{"), false));
}

}  // namespace tests
