// Stored names and paths.
#include "FS_Library_DLL/keystore/FsNames.h"

#include <gtest/gtest.h>

#include "tests/support/FailingHeap.h"

namespace {

WString Escaped(WStringView name, FsNameSet set) {
    FsText buffer;
    WStringView stored;
    EXPECT_TRUE(FS_EscapeName(name, set, &buffer, &stored));
    return WString(stored);
}

WString Unescaped(const WString& stored) {
    WChar* out = nullptr;
    EXPECT_TRUE(FS_UnescapeName(stored.c_str(), &out));
    HeapString owner;
    owner.text = out;
    return out != nullptr ? WString(out) : stored;
}

WString Joined(WStringView base, WStringView name) {
    FsText path;
    EXPECT_TRUE(FS_JoinPath(base, name, &path));
    EXPECT_EQ(WStringView(path.Text()), path.View()) << "ends in a zero unit";
    return WString(path.View());
}

WString Marked(WStringView path) {
    FsText marked;
    EXPECT_TRUE(FS_CollisionPath(path, &marked));
    return WString(marked.View());
}

TEST(Names, SeparatorsAndControlsAreEscaped) {
    EXPECT_EQ(Escaped(WTEXT("a/b#"), FsNameSet::Value), WTEXT("a#002Fb#0023"));
    EXPECT_EQ(Escaped(WTEXT("a\\b"), FsNameSet::Value), WTEXT("a#005Cb"));
    EXPECT_EQ(Escaped(WTEXT("a\\b/c"), FsNameSet::Key), WTEXT("a\\b#002Fc"));
    EXPECT_EQ(Escaped(WTEXT("\t"), FsNameSet::Key), WTEXT("#0009"));
    EXPECT_EQ(Escaped(WTEXT("#FILE"), FsNameSet::Value), WTEXT("#0023FILE"));
}

TEST(Names, EveryUnitComesBack) {
    for (const FsNameSet set : {FsNameSet::Value, FsNameSet::Key}) {
        for (uint32_t code = 1; code < 0x10000; ++code) {
            const auto unit = static_cast<WChar>(code);
            const WString name{'x', unit, 'y'};
            const WString stored = Escaped(name, set);
            ASSERT_EQ(Unescaped(stored), name) << code;
            ASSERT_EQ(stored.size(), stored == name ? 3u : 7u) << code;
            // What goes to the engine as it is must be something that the engine takes.
            if (stored != name) continue;
            ASSERT_GE(code, 0x20u);
            ASSERT_EQ(WStringView(WTEXT("/:*?\"<>|#")).find(unit), WStringView::npos) << code;
            ASSERT_TRUE(platform::IsPrintable(unit)) << code;
        }
    }
}

TEST(Names, PlainNameIsTheCallersOwnText) {
    const support::FailingHeap heap(1, true);
    const WString name(3000, 'n');
    FsText buffer;
    WStringView stored;
    ASSERT_TRUE(FS_EscapeName(name, FsNameSet::Value, &buffer, &stored));
    EXPECT_EQ(stored.data(), name.data());
    EXPECT_EQ(heap.Calls(), 0u);
}

TEST(Names, LongNamesNeedMemoryAndSaySoWithoutIt) {
    const WString name(1000, '/');
    FsText buffer;
    WStringView stored;
    {
        const support::FailingHeap heap(1, true);
        EXPECT_FALSE(FS_EscapeName(name, FsNameSet::Value, &buffer, &stored));
        EXPECT_FALSE(FS_JoinPath(name, name, &buffer));
        EXPECT_FALSE(FS_CollisionPath(name, &buffer));
        WChar* out = nullptr;
        EXPECT_FALSE(FS_UnescapeName(WTEXT("#0041"), &out));
        EXPECT_EQ(out, nullptr);
    }
    ASSERT_TRUE(FS_EscapeName(name, FsNameSet::Value, &buffer, &stored));
    EXPECT_EQ(stored.size(), 5000u);
    EXPECT_EQ(Unescaped(WString(stored)), name);
}

TEST(Names, MarkerIsDroppedAtTheStartOnly) {
    EXPECT_EQ(Unescaped(WTEXT("#FILEX")), WTEXT("X"));
    EXPECT_EQ(Unescaped(WTEXT("#FILE")), WTEXT(""));
    EXPECT_EQ(Unescaped(WTEXT("#FILEa#002Fb")), WTEXT("a/b"));
    EXPECT_EQ(Unescaped(WTEXT("X#FILE")).size(), 2u) << "an escape, and a broken one";
    EXPECT_EQ(Unescaped(WTEXT("\\a#002Fb\\c#0023")), WTEXT("\\a/b\\c#"));
}

// Only a file made by other hands holds these.
TEST(Names, BrokenEscapesAreReadAsFarAsTheyGo) {
    EXPECT_EQ(Unescaped(WTEXT("a#")), WString({'a', 0}).c_str());
    EXPECT_EQ(Unescaped(WTEXT("a#4")), WTEXT("a\x04"));
    EXPECT_EQ(Unescaped(WTEXT("a#41xy!")), WTEXT("aA!"));
    EXPECT_EQ(Unescaped(WTEXT("#0x4Ab")), WTEXT("Jb"));
    EXPECT_EQ(Unescaped(WTEXT("#-001z")), WString({WChar(0xFFFF), 'z'}));
}

TEST(Names, UnescapeRefusesNull) {
    WChar* out = nullptr;
    EXPECT_FALSE(FS_UnescapeName(nullptr, &out));
    EXPECT_FALSE(FS_UnescapeName(WTEXT("a"), nullptr));
}

TEST(Paths, JoinGivesOneLeadingAndNoTrailingBackslash) {
    EXPECT_EQ(Joined(WTEXT("a"), WTEXT("b")), WTEXT("\\a\\b"));
    EXPECT_EQ(Joined(WTEXT("\\a\\"), WTEXT("b\\c\\")), WTEXT("\\a\\b\\c"));
    EXPECT_EQ(Joined(WTEXT("\\a"), {}), Joined(WTEXT("a"), {}));
    EXPECT_EQ(Joined(WTEXT("a\\\\b"), {}), WTEXT("\\a\\\\b"));
    EXPECT_EQ(Joined({}, WTEXT("v")), WTEXT("\\v"));
    for (const WStringView root : {WTEXT(""), WTEXT("\\"), WTEXT("\\\\\\")})
        EXPECT_EQ(Joined(root, {}), WString());
}

TEST(Paths, CollisionMarksTheLastComponent) {
    EXPECT_EQ(Marked(WTEXT("\\K\\X")), WTEXT("\\K\\#FILEX"));
    EXPECT_EQ(Marked(WTEXT("\\X")), WTEXT("\\#FILEX"));
    EXPECT_EQ(Marked(WTEXT("X")), WTEXT("#FILEX"));
}

TEST(Text, GrowsFromTheStackToTheHeapAndOn) {
    FsText text;
    WString expected;
    for (int i = 0; i < 500; ++i) {
        const WString part(static_cast<size_t>(i % 13), static_cast<WChar>('a' + i % 26));
        ASSERT_TRUE(text.Append(part));
        expected += part;
        ASSERT_EQ(text.View(), expected);
    }
    text.Truncate(5);
    EXPECT_EQ(WStringView(text.Text()), expected.substr(0, 5));
    const support::FailingHeap heap(1, true);
    EXPECT_FALSE(text.Append(WString(100000, 'z')));
    EXPECT_EQ(text.View(), expected.substr(0, 5)) << "as it was";
}

}  // namespace
