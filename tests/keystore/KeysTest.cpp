// Keys: made, opened, named, renamed, deleted.
#include "platform/Heap.h"
#include "storage/StorageApi.h"
#include "tests/keystore/TestStore.h"

namespace keystore {
namespace {

using Keys = StoreTest;

TEST_F(Keys, APathMakesEachKeyOnTheWay) {
    FBR_KEY key = 0;
    ASSERT_EQ(FBR_CreateDirEx(0, WTEXT("a\\b\\c"), FSCREATEOPTIONS_NONE, &key, store.handle),
              FSSTATUS_SUCCESS);
    EXPECT_EQ(store.FullName(key), WTEXT("\\a\\b\\c"));
    EXPECT_TRUE(store.Has(WTEXT("\\a")));
    EXPECT_TRUE(store.Has(WTEXT("a\\B")));
    EXPECT_EQ(store.FullName(store.Open(WTEXT("c"), store.Open(WTEXT("a\\b")))),
              WTEXT("\\a\\b\\c"));
}

TEST_F(Keys, AnExistingKeyComesWithAHandleOfItsOwn) {
    FBR_KEY first = 0;
    FBR_KEY second = 0;
    EXPECT_EQ(FBR_CreateDirEx(0, WTEXT("k"), FSCREATEOPTIONS_NONE, &first, store.handle),
              FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_CreateDirEx(0, WTEXT("K"), FSCREATEOPTIONS_NONE, &second, store.handle),
              FSSTATUS_ALREADY_EXISTS);
    EXPECT_NE(first, second);
    EXPECT_EQ(FBR_CloseDirEx(first, store.handle), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_CloseDirEx(first, store.handle), FSSTATUS_FAILED);
    EXPECT_EQ(store.FullName(second), WTEXT("\\K"));
}

TEST_F(Keys, AParentThatIsNotOpenIsTheRoot) {
    const FBR_KEY parent = store.Make(WTEXT("parent"));
    FBR_CloseDirEx(parent, store.handle);
    EXPECT_EQ(store.FullName(store.Make(WTEXT("child"), parent)), WTEXT("\\child"));
    EXPECT_EQ(store.FullName(store.Make(WTEXT("other"), 4711)), WTEXT("\\other"));
    EXPECT_EQ(store.FullName(store.Open(WTEXT("child"), -1)), WTEXT("\\child"));
}

TEST_F(Keys, TheRootIsAKeyWithoutAName) {
    const FBR_KEY root = store.Root();
    ASSERT_NE(root, 0);
    EXPECT_EQ(store.FullName(root), WTEXT(""));
    EXPECT_EQ(store.FullName(store.Make(WTEXT("a"), root)), WTEXT("\\a"));
    WChar* name = nullptr;
    ASSERT_EQ(FBR_GetName_DirEx(root, &name, store.handle), FSSTATUS_SUCCESS);
    EXPECT_EQ(WStringView(name), WTEXT(""));
    FBR_Release(name);
    FBR_KEY made = 0;
    EXPECT_EQ(FBR_CreateDirEx(0, WTEXT("\\"), FSCREATEOPTIONS_NONE, &made, store.handle),
              FSSTATUS_SUCCESS);
}

TEST_F(Keys, AValueIsNoKey) {
    store.Set(store.Root(), WTEXT("v"), {1});
    FBR_KEY key = 0;
    EXPECT_EQ(FBR_OpenDirEx(0, WTEXT("v"), &key, store.handle), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(FBR_OpenDirEx(0, WTEXT("none"), &key, store.handle), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(key, 0);
}

TEST_F(Keys, NamesComeBackAsTheCallerGaveThem) {
    const WString names[] = {WTEXT("with/slash"),
                             WTEXT("#FILEx"),
                             WTEXT("a:b*c?\"<>|#"),
                             WString({'t', 9, 1, 31, 127}),
                             WString({0xD83D, 0xDE00}),
                             WString({'l', 0xDC00, 0xD800}),
                             WString(300, 'n'),
                             WString(22, 'm'),
                             WString(23, 'm'),
                             WTEXT("."),
                             WTEXT(".."),
                             WTEXT(" ")};
    for (const WString& name : names) {
        const FBR_KEY key = store.Make(name, store.Make(WTEXT("p")));
        ASSERT_NE(key, 0);
        EXPECT_EQ(store.FullName(key), WTEXT("\\p\\") + name);
        WChar* text = nullptr;
        ASSERT_EQ(FBR_GetName_DirEx(key, &text, store.handle), FSSTATUS_SUCCESS);
        EXPECT_EQ(WStringView(text), name);
        FBR_Release(text);
    }
    std::vector<WString> listed = store.Keys(store.Open(WTEXT("p")));
    EXPECT_EQ(listed.size(), std::size(names));
    for (const WString& name : names) EXPECT_EQ(std::count(listed.begin(), listed.end(), name), 1);
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\p"), store.handle), FSSTATUS_SUCCESS);
    EXPECT_FALSE(store.Has(WTEXT("p")));
}

TEST_F(Keys, NamesMayDifferBehindTheTwentySecondUnit) {
    const FBR_KEY parent = store.Make(WTEXT("p"));
    for (const WString tail : {WTEXT(""), WTEXT("a"), WTEXT("b"), WTEXT("ab")}) {
        FBR_KEY key = 0;
        EXPECT_EQ(FBR_CreateDirEx(parent, (WString(22, 'x') + tail).c_str(), FSCREATEOPTIONS_NONE,
                                  &key, store.handle),
                  FSSTATUS_SUCCESS);
        EXPECT_EQ(store.Set(parent, WString(22, 'y') + tail, Bytes(tail.size() + 1)),
                  FSSTATUS_SUCCESS);
    }
    EXPECT_EQ(store.Keys(parent).size(), 4u);
    EXPECT_EQ(store.Get(parent, WString(22, 'Y') + WTEXT("AB")), Bytes(3));
}

TEST_F(Keys, RenameCarriesOpenHandlesAlong) {
    const FBR_KEY key = store.Make(WTEXT("a\\old"));
    const FBR_KEY below = store.Make(WTEXT("x\\y"), key);
    const FBR_KEY neighbour = store.Make(WTEXT("a\\ol"));
    store.Set(below, WTEXT("v"), {7});
    ASSERT_EQ(FBR_RenameDirEx(key, WTEXT("new/er"), store.handle), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.FullName(key), WTEXT("\\a\\new/er"));
    EXPECT_EQ(store.FullName(below), WTEXT("\\a\\new/er\\x\\y"));
    EXPECT_EQ(store.FullName(neighbour), WTEXT("\\a\\ol"));
    EXPECT_EQ(store.Get(below, WTEXT("v")), Bytes({7}));
    EXPECT_FALSE(store.Has(WTEXT("a\\old")));
    EXPECT_TRUE(store.Has(WTEXT("a\\new/er\\x\\y")));
}

TEST_F(Keys, RenameRefusesATakenNameAndNonsense) {
    const FBR_KEY key = store.Make(WTEXT("k"));
    store.Make(WTEXT("taken"));
    EXPECT_EQ(FBR_RenameDirEx(key, WTEXT("taken"), store.handle), FSSTATUS_ALREADY_EXISTS);
    EXPECT_EQ(store.FullName(key), WTEXT("\\k"));
    EXPECT_EQ(FBR_RenameDirEx(key, WTEXT(""), store.handle), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_RenameDirEx(0, WTEXT("n"), store.handle), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_RenameDirEx(77, WTEXT("n"), store.handle), FSSTATUS_FAILED);
    EXPECT_EQ(FBR_RenameDirEx(key, WTEXT("K"), store.handle), FSSTATUS_SUCCESS) << "case alone";
    EXPECT_EQ(store.FullName(key), WTEXT("\\K"));
}

// A neighbour whose path begins with the same text follows as well, and then names nothing.
TEST_F(Keys, RenameLeavesTheNeighbourWithTheSameBeginning) {
    const FBR_KEY key = store.Make(WTEXT("b"));
    const FBR_KEY neighbour = store.Make(WTEXT("bc"));
    ASSERT_EQ(FBR_RenameDirEx(key, WTEXT("z"), store.handle), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.FullName(neighbour), WTEXT("\\bc"));
}

TEST_F(Keys, DeletingAKeyTakesItsValuesButNoSubkeys) {
    const FBR_KEY key = store.Make(WTEXT("k"));
    const FBR_KEY again = store.Open(WTEXT("k"));
    for (int i = 0; i < 30; ++i) store.Set(key, WString(1, static_cast<WChar>('a' + i)), {1});
    store.Make(WTEXT("sub"), key);
    EXPECT_EQ(FBR_DeleteDirEx(key, store.handle), FSSTATUS_DIR_NOT_EMPTY);
    EXPECT_TRUE(store.Values(key).empty());
    EXPECT_EQ(FBR_DeleteDirEx(store.Open(WTEXT("k\\sub")), store.handle), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_DeleteDirEx(key, store.handle), FSSTATUS_SUCCESS);
    EXPECT_FALSE(store.Has(WTEXT("k")));
    // All handles on it went with it.
    EXPECT_EQ(FBR_CloseDirEx(key, store.handle), FSSTATUS_FAILED);
    EXPECT_EQ(FBR_CloseDirEx(again, store.handle), FSSTATUS_FAILED);
    EXPECT_EQ(FBR_DeleteDirEx(again, store.handle), FSSTATUS_SUCCESS) << "not open: nothing to do";
}

TEST_F(Keys, DeletingByNameTakesTheTree) {
    store.Set(store.Make(WTEXT("t\\a\\b/c\\d")), WTEXT("v"), {1});
    const FBR_KEY inside = store.Open(WTEXT("t\\a"));
    store.Make(WTEXT("tt"));
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\t"), store.handle), FSSTATUS_SUCCESS);
    EXPECT_FALSE(store.Has(WTEXT("t")));
    EXPECT_TRUE(store.Has(WTEXT("tt")));
    EXPECT_EQ(FBR_CloseDirEx(inside, store.handle), FSSTATUS_FAILED);
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\t"), store.handle), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT(""), store.handle), FSSTATUS_INVALID_PARAMETER);
}

TEST_F(Keys, DeletingTheRootEmptiesTheStore) {
    store.Set(store.Make(WTEXT("a\\b")), WTEXT("v"), {1});
    const FBR_KEY root = store.Root();
    store.Set(root, WTEXT("r"), {1});
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\"), store.handle), FSSTATUS_SUCCESS);
    EXPECT_TRUE(store.Keys(root).empty());
    EXPECT_TRUE(store.Values(root).empty()) << "the version record is a value like any other";
    store.Close();
    Store again(path);
    EXPECT_EQ(again.status, FSSTATUS_SUCCESS);
    EXPECT_EQ(again.Values(again.Root()), std::vector<WString>{WTEXT("FBRVersion")});
}

// Makes `levels` keys, one below the other.
WString MakeChain(Store& store, int levels) {
    WString chain;
    for (int i = 0; i < levels; ++i) chain += WTEXT("\\d");
    EXPECT_NE(store.Make(chain), 0);
    return chain;
}

TEST_F(Keys, DeepTreesAreMadeReadAndDeleted) {
    const WString chain = MakeChain(store, 500);
    const FBR_KEY deepest = store.Open(chain);
    ASSERT_NE(deepest, 0);
    store.Set(deepest, WTEXT("v"), {5});
    EXPECT_EQ(store.FullName(deepest), chain);
    EXPECT_EQ(store.Get(deepest, WTEXT("v")), Bytes({5}));
    ASSERT_EQ(FBR_RenameDirEx(store.Open(WTEXT("\\d")), WTEXT("top"), store.handle),
              FSSTATUS_SUCCESS);
    EXPECT_EQ(store.FullName(deepest), WTEXT("\\top") + chain.substr(2));
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\top"), store.handle), FSSTATUS_SUCCESS);
    EXPECT_TRUE(store.Keys(store.Root()).empty());
}

// Counted from the key that is named, and the root is one like any other.
TEST_F(Keys, ATreeOf513LevelsIsTheDeepestThatIsDeleted) {
    MakeChain(store, 514);
    for (const WString key : {WTEXT("\\d"), WTEXT("\\")}) {
        EXPECT_EQ(FBR_DeleteDirNamedEx(key.c_str(), store.handle), FSSTATUS_TREE_DELETE_FAILED);
    }
    EXPECT_TRUE(store.Has(WTEXT("d\\d")));
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\d\\d"), store.handle), FSSTATUS_SUCCESS);
    MakeChain(store, 513);
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\"), store.handle), FSSTATUS_TREE_DELETE_FAILED);
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\d"), store.handle), FSSTATUS_SUCCESS);
    MakeChain(store, 512);
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\"), store.handle), FSSTATUS_SUCCESS);
    EXPECT_FALSE(store.Has(WTEXT("d")));
}

TEST_F(Keys, DuplicatesOfPlainPathsOnly) {
    const FBR_KEY key = store.Make(WTEXT("plain\\key"));
    FBR_KEY copy = 0;
    ASSERT_EQ(FBR_DuplicateDirHandleEx(key, &copy, store.handle), FSSTATUS_SUCCESS);
    EXPECT_NE(copy, key);
    FBR_CloseDirEx(key, store.handle);
    EXPECT_EQ(store.FullName(copy), WTEXT("\\plain\\key"));
    const FBR_KEY escaped = store.Make(WTEXT("a/b"));
    EXPECT_EQ(FBR_DuplicateDirHandleEx(escaped, &copy, store.handle), FSSTATUS_FAILED);
    EXPECT_EQ(FBR_DuplicateDirHandleEx(0, &copy, store.handle), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_DuplicateDirHandleEx(99, &copy, store.handle), FSSTATUS_FAILED);
}

TEST_F(Keys, TimesAreThoseOfTheLastChange) {
    const FBR_KEY key = store.Make(WTEXT("k"));
    const platform::UtcTime now = platform::UtcNow();
    FBR_SYSTEMTIME time{};
    time.wDayOfWeek = 77;
    ASSERT_EQ(FBR_GetDirTimesEx(key, &time, store.handle), FSSTATUS_SUCCESS);
    EXPECT_EQ(time.wDayOfWeek, 77) << "left alone";
    EXPECT_EQ(time.wHour, now.hour);
    EXPECT_LE(time.wMinute, 59);
    EXPECT_LE(time.wMilliseconds, 999);
    const FBR_KEY escaped = store.Make(WTEXT("a/b"));
    EXPECT_EQ(FBR_GetDirTimesEx(escaped, &time, store.handle), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(FBR_GetDirTimesEx(key, nullptr, store.handle), FSSTATUS_INVALID_PARAMETER);
}

TEST_F(Keys, HandlesOfOtherStoresAreNoHandlesHere) {
    Store other(dir.File("other.fbr"));
    ASSERT_EQ(other.Lock(), FSSTATUS_SUCCESS);
    const FBR_KEY foreign = other.Make(WTEXT("k"));
    uint64_t size = 0;
    WChar* name = nullptr;
    EXPECT_EQ(FBR_QueryValue(foreign, WTEXT("v"), nullptr, 0, &size, nullptr, store.handle),
              FSSTATUS_FAILED);
    EXPECT_EQ(FBR_GetName_DirEx(foreign, &name, store.handle), FSSTATUS_FAILED);
    EXPECT_EQ(FBR_CloseDirEx(foreign, store.handle), FSSTATUS_FAILED);
    EXPECT_EQ(other.FullName(foreign), WTEXT("\\k"));
}

TEST_F(Keys, VolatileKeysGoWithALockedClose) {
    store.Make(WTEXT("gone\\deep"), 0, FSCREATEOPTIONS_VOLATILE);
    store.Make(WTEXT("escaped/name"), 0, FSCREATEOPTIONS_VOLATILE);
    store.Make(WTEXT("stays"));
    store.Close();
    Store again(path);
    EXPECT_FALSE(again.Has(WTEXT("gone\\deep")));
    EXPECT_TRUE(again.Has(WTEXT("gone"))) << "made on the way, never volatile";
    EXPECT_TRUE(again.Has(WTEXT("escaped/name"))) << "asked for by its stored path";
    EXPECT_TRUE(again.Has(WTEXT("stays")));
}

TEST_F(Keys, VolatileKeysStayWithAnUnlockedClose) {
    store.Make(WTEXT("v"), 0, FSCREATEOPTIONS_VOLATILE);
    store.Unlock();
    store.Close();
    EXPECT_TRUE(Store(path).Has(WTEXT("v")));
}

// Only the first volatile key loses its volatility by being made again. Behind it the key behind
// the one that is meant is taken out, and the last one is never found.
TEST_F(Keys, MakingAKeyAgainEndsVolatilityAsEver) {
    for (const WString name : {WTEXT("v0"), WTEXT("v1"), WTEXT("v2"), WTEXT("v3")})
        store.Make(name, 0, FSCREATEOPTIONS_VOLATILE);
    store.Make(WTEXT("V0"), 0, FSCREATEOPTIONS_VOLATILE);  // head: v0 stays
    store.Make(WTEXT("v2"));                               // v3 is taken out and stays
    store.Make(WTEXT("v2"));                               // now the last one: not found
    store.Close();
    Store again(path);
    EXPECT_TRUE(again.Has(WTEXT("v0")));
    EXPECT_FALSE(again.Has(WTEXT("v1")));
    EXPECT_FALSE(again.Has(WTEXT("v2")));
    EXPECT_TRUE(again.Has(WTEXT("v3")));
}

}  // namespace
}  // namespace keystore
