// Keys as a container alone has them: names, limits, volatility, and what no handle is.
#include "platform/Clock.h"
#include "tests/keystore/TestStore.h"

namespace keystore {
namespace {

using Keys = StoreTest;

TEST_F(Keys, AParentThatIsNotOpenIsTheRoot) {
    const FBR_KEY parent = store.Make("parent");
    store.Close(parent);
    EXPECT_EQ(store.FullName(store.Make("child", parent)), WTEXT("\\child"));
    EXPECT_EQ(store.FullName(store.Make("other", 4711)), WTEXT("\\other"));
    EXPECT_EQ(store.FullName(store.Open("child", -1)), WTEXT("\\child"));
    EXPECT_EQ(store.FullName(store.Make("a", store.Root())), WTEXT("\\a"));
    EXPECT_EQ(store.TryMake("\\"), FSSTATUS_SUCCESS);
}

// Of keys and of values; a value's may hold a backslash, too.
TEST_F(Keys, NamesComeBackAsTheCallerGaveThem) {
    Names names = {WTEXT("with/slash"),
                   WTEXT("#FILEx"),
                   WTEXT("a/b:c*?\"<>|#"),
                   WString({'t', 9, 1, 31, 127}),
                   WString({0xD83D, 0xDE00}),
                   WString({'l', 0xDC00, 0xD800}),
                   WString(300, 'n'),
                   WTEXT("."),
                   WTEXT(".."),
                   WTEXT(" ")};
    for (WChar control = 1; control < 32; ++control) names.push_back({'c', control});
    // They may differ behind the 22nd unit.
    for (const WChar* tail : {WTEXT(""), WTEXT("a"), WTEXT("b"), WTEXT("ab")})
        names.push_back(WString(22, 'x') + tail);
    const FBR_KEY parent = store.Make("p");
    for (const WString& name : names) {
        EXPECT_EQ(store.TryMake(name, parent), FSSTATUS_SUCCESS);
        EXPECT_EQ(store.Set(parent, name, Bytes(name.size())), FSSTATUS_SUCCESS);
        EXPECT_EQ(store.FullName(store.Open(name, parent)), WTEXT("\\p\\") + name);
        EXPECT_EQ(store.Name(store.Open(name, parent)), name);
    }
    std::sort(names.begin(), names.end());
    Names keys = store.Keys(parent), values = store.Values(parent);
    std::sort(keys.begin(), keys.end());
    std::sort(values.begin(), values.end());
    EXPECT_EQ(keys, names);
    EXPECT_EQ(values, names);
    for (const WString& name : names) EXPECT_EQ(store.Get(parent, name), Bytes(name.size()));
    for (const char* name : {"a\\b", "\\"}) {
        EXPECT_EQ(store.Set(parent, name, {1}), FSSTATUS_SUCCESS);
        EXPECT_EQ(store.DeleteValue(parent, name), FSSTATUS_SUCCESS);
    }
    EXPECT_EQ(store.Keys(parent).size(), names.size()) << "no name made a key";
    EXPECT_EQ(store.DeleteTree("\\p"), FSSTATUS_SUCCESS);
    EXPECT_FALSE(store.Has("p"));
}

TEST_F(Keys, ARenameOrADeletionTakesItsHandlesAndNoNeighbours) {
    const FBR_KEY key = store.Make("b"), neighbour = store.Make("bc");
    const FBR_KEY below = store.Make("x/y\\z", key), again = store.Open("b");
    ASSERT_EQ(store.Rename(key, "z/a"), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.FullName(neighbour), WTEXT("\\bc"));
    EXPECT_EQ(store.FullName(below), WTEXT("\\z/a\\x/y\\z"));
    EXPECT_EQ(store.Rename(key, "Z/A"), FSSTATUS_SUCCESS) << "case alone";
    EXPECT_EQ(store.FullName(again), WTEXT("\\Z/A"));
    ASSERT_EQ(store.Rename(key, "zz"), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.DeleteTree("\\zz"), FSSTATUS_SUCCESS);
    for (const FBR_KEY gone : {key, below, again}) {
        EXPECT_EQ(store.Close(gone), FSSTATUS_FAILED);
        EXPECT_EQ(store.Delete(gone), FSSTATUS_SUCCESS) << "not open: nothing to do";
    }
    EXPECT_EQ(store.FullName(neighbour), WTEXT("\\bc"));
}

TEST_F(Keys, DeletingTheRootEmptiesTheStore) {
    store.Set(store.Make("a\\b"), "v", {1});
    const FBR_KEY root = store.Root();
    store.Set(root, "r", {1});
    EXPECT_EQ(store.DeleteTree("\\"), FSSTATUS_SUCCESS);
    EXPECT_TRUE(store.Keys(root).empty());
    EXPECT_TRUE(store.Values(root).empty()) << "the version record is a value like any other";
    store.Close();
    Store again(path);
    EXPECT_EQ(again.status, FSSTATUS_SUCCESS);
    EXPECT_EQ(again.Values(again.Root()), Names{WTEXT("FBRVersion")});
}

// Counted from the key that is named, and the root is one like any other.
TEST_F(Keys, ATreeOf513LevelsIsTheDeepestThatIsDeleted) {
    const auto makeChain = [&](int levels) {
        WString chain;
        for (int i = 0; i < levels; ++i) chain += WTEXT("\\d");
        const FBR_KEY deepest = store.Make(chain);
        EXPECT_EQ(store.FullName(deepest), chain);
        EXPECT_EQ(store.Set(deepest, "v", {5}), FSSTATUS_SUCCESS);
        return deepest;
    };
    const FBR_KEY deepest = makeChain(514);
    for (const char* key : {"\\d", "\\"})
        EXPECT_EQ(store.DeleteTree(key), FSSTATUS_TREE_DELETE_FAILED);
    ASSERT_EQ(store.Rename(store.Open("\\d"), "top"), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.FullName(deepest).substr(0, 8), WTEXT("\\top\\d\\d"));
    EXPECT_EQ(store.Get(deepest, "v"), Bytes({5}));
    EXPECT_EQ(store.DeleteTree("\\top\\d"), FSSTATUS_SUCCESS);
    makeChain(513);
    EXPECT_EQ(store.DeleteTree("\\"), FSSTATUS_TREE_DELETE_FAILED);
    EXPECT_EQ(store.DeleteTree("\\d"), FSSTATUS_SUCCESS);
    makeChain(512);
    EXPECT_EQ(store.DeleteTree("\\"), FSSTATUS_SUCCESS);
    EXPECT_FALSE(store.Has("d"));
}

// What is no handle here, and what is no name: the status of each operation.
TEST_F(Keys, WhatIsNoKeyIsRefused) {
    Store other(dir.File("other.fbr"));
    ASSERT_EQ(other.Lock(), FSSTATUS_SUCCESS);
    const FBR_KEY key = store.Make("k"), escaped = store.Make("a/b"), foreign = other.Make("k");
    FBR_KEY copy = 0;
    uint64_t size = 0;
    WChar* name = nullptr;
    Names names;
    FBR_SYSTEMTIME time{};
    for (const FBR_KEY bad : {FBR_KEY{0}, FBR_KEY{1}, FBR_KEY{-1}, key + 8, foreign}) {
        SCOPED_TRACE(bad);
        const FBR_STATUS none = bad == 0 ? FSSTATUS_INVALID_PARAMETER : FSSTATUS_FAILED;
        EXPECT_EQ(store.Set(bad, "v", {1}), FSSTATUS_FAILED);
        EXPECT_EQ(store.Query(bad, "v", nullptr, 0, &size), FSSTATUS_FAILED);
        EXPECT_EQ(store.DeleteValue(bad, "v"), FSSTATUS_FAILED);
        EXPECT_EQ(store.Rename(bad, "n"), none);
        EXPECT_EQ(store.Duplicate(bad, &copy), none);
        EXPECT_EQ(FBR_EnumIntFileEx(bad, 0, &name, store.handle), none);
        EXPECT_EQ(FBR_EnumIntDirEx(bad, 0, &name, store.handle), none);
        EXPECT_EQ(FBR_EnumerateAllValues(bad, names, store.handle), none);
        EXPECT_EQ(FBR_EnumerateAllKeys(bad, names, store.handle), none);
        if (bad != 0) {
            EXPECT_EQ(FBR_GetName_DirEx(bad, &name, store.handle), FSSTATUS_FAILED);
            EXPECT_EQ(store.Close(bad), FSSTATUS_FAILED);
        }
    }
    EXPECT_EQ(other.FullName(foreign), WTEXT("\\k"));
    EXPECT_EQ(store.Rename(key, ""), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(store.DeleteTree(""), FSSTATUS_INVALID_PARAMETER);
    // Plain paths only.
    EXPECT_EQ(store.Duplicate(escaped, &copy), FSSTATUS_FAILED);
    EXPECT_EQ(FBR_GetDirTimesEx(escaped, &time, store.handle), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(FBR_GetDirTimesEx(key, nullptr, store.handle), FSSTATUS_INVALID_PARAMETER);
    time.wDayOfWeek = 77;
    EXPECT_EQ(FBR_GetDirTimesEx(key, &time, store.handle), FSSTATUS_SUCCESS);
    EXPECT_EQ(time.wDayOfWeek, 77) << "left alone";
    EXPECT_LE(time.wMilliseconds, 999);
}

TEST_F(Keys, VolatileKeysGoWithALockedClose) {
    store.Make("gone\\deep", 0, FSCREATEOPTIONS_VOLATILE);
    store.Make("escaped/name", 0, FSCREATEOPTIONS_VOLATILE);
    // Only the first volatile key loses its volatility by being made again. Behind it the key
    // behind the one that is named is taken out, and the last one is never found.
    for (const char* name : {"v0", "v1", "v2", "v3"}) store.Make(name, 0, FSCREATEOPTIONS_VOLATILE);
    store.Make("GONE\\deep", 0, FSCREATEOPTIONS_VOLATILE);
    for (int i = 0; i < 2; ++i) store.Make("v2");
    store.Close();
    Store again(path);
    EXPECT_TRUE(again.Has("gone")) << "made on the way, never volatile";
    EXPECT_TRUE(again.Has("gone\\deep"));
    EXPECT_TRUE(again.Has("escaped/name")) << "asked for by its stored path";
    for (const char* name : {"v0", "v1", "v2"}) EXPECT_FALSE(again.Has(name)) << name;
    EXPECT_TRUE(again.Has("v3"));
    EXPECT_EQ(again.Lock(), FSSTATUS_SUCCESS);
    again.Make("v1", 0, FSCREATEOPTIONS_VOLATILE);
    again.Unlock();
    again.Close();
    EXPECT_TRUE(Store(path).Has("v1")) << "closed without the lock";
}

}  // namespace
}  // namespace keystore
