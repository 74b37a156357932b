// SPDX-License-Identifier: MIT
// Stored names and paths.
#include "FS_Library_DLL/keystore/FsNames.h"

#include <gtest/gtest.h>

#include <array>

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

TEST(Names, EveryUnitComesBack) {
    EXPECT_EQ(Escaped(WTEXT("a\\b/c#"), FsNameSet::Key), WTEXT("a\\b#002Fc#0023"));
    EXPECT_EQ(Escaped(WTEXT("a\\b/c#"), FsNameSet::Value), WTEXT("a#005Cb#002Fc#0023"));
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

TEST(Names, NeedMemoryOnlyWhereTheyChangeAndSaySoWithoutIt) {
    const WString plain(3000, 'n'), name(1000, '/');
    FsText buffer;
    WStringView stored;
    {
        const support::FailingHeap heap(1, true);
        ASSERT_TRUE(FS_EscapeName(plain, FsNameSet::Value, &buffer, &stored));
        EXPECT_EQ(stored.data(), plain.data()) << "the caller's own text";
        EXPECT_EQ(heap.Calls(), 0u);
        WChar* out = nullptr;
        EXPECT_FALSE(FS_EscapeName(name, FsNameSet::Value, &buffer, &stored));
        EXPECT_FALSE(FS_JoinPath(name, name, &buffer));
        EXPECT_FALSE(FS_CollisionPath(name, &buffer));
        EXPECT_FALSE(FS_UnescapeName(WTEXT("#0041"), &out));
        EXPECT_FALSE(FS_UnescapeName(nullptr, &out));
        EXPECT_FALSE(FS_UnescapeName(WTEXT("a"), nullptr));
        EXPECT_EQ(out, nullptr);
    }
    EXPECT_EQ(Unescaped(Escaped(name, FsNameSet::Value)), name);
}

// The marker is dropped at the start only. Escapes that are broken, as only a file made by other
// hands holds them, are read as far as they go.
TEST(Names, AreReadAsTheyAreStored) {
    const std::pair<const WChar*, WString> rows[] = {
        {WTEXT("#FILEX"), WTEXT("X")},
        {WTEXT("#FILE"), WTEXT("")},
        {WTEXT("#FILEa#002Fb"), WTEXT("a/b")},
        {WTEXT("\\a#002Fb\\c#0023"), WTEXT("\\a/b\\c#")},
        {WTEXT("a#"), WTEXT("a")},
        {WTEXT("a#4"), WTEXT("a\x04")},
        {WTEXT("a#41xy!"), WTEXT("aA!")},
        {WTEXT("#0x4Ab"), WTEXT("Jb")},
        {WTEXT("#-001z"), WString({WChar(0xFFFF), 'z'})},
    };
    for (const auto& [stored, name] : rows) EXPECT_EQ(Unescaped(stored), name);
    EXPECT_EQ(Unescaped(WTEXT("X#FILE")).size(), 2u) << "an escape, and a broken one";
}

TEST(Paths, HaveOneLeadingAndNoTrailingBackslash) {
    const std::array<const WChar*, 3> rows[] = {
        {WTEXT("a"), WTEXT("b"), WTEXT("\\a\\b")},
        {WTEXT("\\a\\"), WTEXT("b\\c\\"), WTEXT("\\a\\b\\c")},
        {WTEXT("a\\\\b"), WTEXT(""), WTEXT("\\a\\\\b")},
        {WTEXT("\\a"), WTEXT(""), WTEXT("\\a")},
        {WTEXT(""), WTEXT("v"), WTEXT("\\v")},
        {WTEXT(""), WTEXT(""), WTEXT("")},
        {WTEXT("\\"), WTEXT(""), WTEXT("")},
        {WTEXT("\\\\\\"), WTEXT(""), WTEXT("")},
    };
    for (const auto& [base, name, expected] : rows) {
        FsText path;
        EXPECT_TRUE(FS_JoinPath(base, name, &path));
        EXPECT_EQ(path.View(), expected);
        EXPECT_EQ(WStringView(path.Text()), path.View()) << "ends in a zero unit";
    }
    const std::pair<const WChar*, const WChar*> marked[] = {{WTEXT("\\K\\X"), WTEXT("\\K\\#FILEX")},
                                                            {WTEXT("X"), WTEXT("#FILEX")}};
    for (const auto& [path, expected] : marked) {
        FsText text;
        EXPECT_TRUE(FS_CollisionPath(path, &text));
        EXPECT_EQ(text.View(), expected);
    }
}

}  // namespace
