// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/registry/KeyTreeDeleter.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "FS_Library_DLL/registry/CombinePath.h"
#include "tests/support/StubStore.h"

namespace {

// A store that is nothing but a set of key paths; a handle is an index into what was opened.
class PathStore : public support::StubStore {
  public:
    explicit PathStore(std::set<WString> all) : paths(std::move(all)) {}

    FBR_STATUS FBR_OpenDirEx(int64_t parent, const WChar* name, int64_t* key) override {
        EXPECT_EQ(parent, 0);
        if (locked.contains(name)) return FSSTATUS_ACCESS_DENIED;
        if (!paths.contains(name)) return FSSTATUS_NOT_FOUND;
        open[++lastHandle] = name;
        *key = lastHandle;
        return FSSTATUS_SUCCESS;
    }
    FBR_STATUS FBR_CloseDirEx(int64_t key) override {
        EXPECT_EQ(open.erase(key), 1u);
        return FSSTATUS_SUCCESS;
    }
    FBR_STATUS FBR_EnumIntDirEx(int64_t key, uint32_t index, WChar** name) override {
        EXPECT_EQ(index, 0u);
        const WString prefix = open.at(key) + WString(1, '\\');
        const auto found = paths.upper_bound(prefix);
        if (nameless.contains(open.at(key))) {
            *name = support::HeapText(WTEXT(""));
        } else if (found != paths.end() && found->starts_with(prefix)) {
            *name = support::HeapText(found->substr(prefix.size()));
        } else {
            return FSSTATUS_NO_MORE_ENTRIES;
        }
        return FSSTATUS_SUCCESS;
    }
    FBR_STATUS FBR_DeleteDirEx(int64_t key) override {
        paths.erase(open.at(key));
        return FSSTATUS_SUCCESS;
    }

    std::set<WString> paths;
    std::set<WString> locked;
    std::set<WString> nameless;
    std::map<int64_t, WString> open;
    int64_t lastHandle = 0;
};

FBR_STATUS DeleteNamed(PathStore& store, const WString& path) {
    KeyTreeDeleter record(&store, path);
    return DeleteOpenKeyTree(record);
}

TEST(KeyTreeDeleter, StopsAtTheFirstFailure) {
    PathStore store({WTEXT("a"), WTEXT("a\\b"), WTEXT("a\\b\\x"), WTEXT("a\\c"), WTEXT("a\\d")});
    store.locked = {WTEXT("a\\c")};
    EXPECT_EQ(DeleteNamed(store, WTEXT("a")), FSSTATUS_ACCESS_DENIED);
    EXPECT_EQ(store.paths, (std::set<WString>{WTEXT("a"), WTEXT("a\\c"), WTEXT("a\\d")}));
    EXPECT_TRUE(store.open.empty());
}

TEST(KeyTreeDeleter, RefusesASubkeyThatIsItsOwnParent) {
    PathStore store({WTEXT("a"), WTEXT("a\\b")});
    store.nameless = {WTEXT("a\\b")};
    EXPECT_EQ(DeleteNamed(store, WTEXT("a")), FSSTATUS_TREE_DELETE_FAILED);
    EXPECT_TRUE(store.open.empty());
}

TEST(KeyTreeDeleter, WalksAnyDepthAndLeavesABorrowedHandleOpen) {
    std::set<WString> paths;
    WString path = WTEXT("k");
    for (int i = 0; i < 3000; ++i) {
        paths.insert(path);
        path += WTEXT("\\k");
    }
    PathStore store(paths);
    int64_t key = 0;
    ASSERT_EQ(store.FBR_OpenDirEx(0, WTEXT("k"), &key), FSSTATUS_SUCCESS);
    {
        KeyTreeDeleter record(&store, WTEXT("k"), key);
        EXPECT_EQ(DeleteOpenKeyTree(record), FSSTATUS_SUCCESS);
    }
    EXPECT_TRUE(store.paths.empty());
    EXPECT_EQ(store.open.size(), 1u);
}

TEST(CombinePath, PutsOneBackslashBetween) {
    const WChar* const rows[][3] = {
        {WTEXT("a"), WTEXT("b"), WTEXT("a\\b")},
        {WTEXT("a\\"), WTEXT("\\b"), WTEXT("a\\b")},
        {WTEXT("a"), WTEXT("\\\\b"), WTEXT("a\\\\b")},
        {WTEXT(""), WTEXT("\\b"), WTEXT("\\b")},
        {WTEXT("a\\"), WTEXT(""), WTEXT("a\\")},
        {WTEXT("\\\\?\\C:"), WTEXT("\\\\?\\x"), WTEXT("\\\\?\\C:\\x")},
        {WTEXT("a"), WTEXT("\\\\?\\x"), WTEXT("a\\x")},
        {WTEXT("\\\\?\\"), WTEXT("x"), WTEXT("\\\\?\\x")},
    };
    for (const auto& [left, right, whole] : rows) EXPECT_EQ(CombinePath(left, right), whole);
}

}  // namespace
