#include "storage/namespace/Path.h"
#include "tests/storage/namespace/Store.h"

namespace tests {

using platform::WStringView;

TEST(Path, EverySpellingNamesTheSameObject) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\a")), kOk);
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\a\\b")), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\a\\b\\c"), "text"), kOk);
    for (const WChar* path : {WTEXT("a\\b\\c"), WTEXT("\\\\a\\\\\\b\\c"), WTEXT("/a:b/c"),
                              WTEXT("\\a\\b\\c\\"), WTEXT("A/B\\C:/\\"), WTEXT(":a\\b/c")})
        EXPECT_EQ(store.Text(path), "text") << platform::ToUtf8(path);
    for (const WChar* path : {WTEXT(""), WTEXT("\\"), WTEXT("/:\\")})
        EXPECT_EQ(store.Attributes(path), kAttrDirectory) << platform::ToUtf8(path);
}

TEST(Path, TellsWhatIsMissing) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\a")), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\a\\file")), kOk);
    EXPECT_EQ(store.AttributesStatus(WTEXT("\\b")), kNotFound);
    EXPECT_EQ(store.AttributesStatus(WTEXT("\\b\\c")), kNotFound);
    EXPECT_EQ(store.AttributesStatus(WTEXT("\\a\\file\\c")), kNotFound);
    EXPECT_EQ(store.MakeDirectory(WTEXT("\\b\\c")), kParentMissing);
    EXPECT_EQ(store.MakeDirectory(WTEXT("\\a\\file\\c\\d")), kParentMissing);
    EXPECT_EQ(store.Delete(WTEXT("\\a\\b")), kNotFound);
    EXPECT_EQ(store.Move(WTEXT("\\a\\b"), WTEXT("\\x")), kNotFound);
    EXPECT_EQ(store.Move(WTEXT("\\a\\file"), WTEXT("\\b\\x")), kParentMissing);
    // The root has no name to be made, deleted or moved by.
    EXPECT_EQ(store.MakeDirectory(WTEXT("\\")), kNotFound);
    EXPECT_EQ(store.Delete(WTEXT("\\")), kNotFound);
    EXPECT_EQ(store.Move(WTEXT("\\"), WTEXT("\\x")), kNotFound);
    EXPECT_EQ(store.Move(WTEXT("\\a"), WTEXT("\\")), kNotFound);
    EXPECT_EQ(store.List(WTEXT("\\")), Names({WTEXT("status -8")}));
}

TEST(Path, ADeletedOrRenamedDirectoryIsNotRemembered) {
    Store store;
    for (const WChar* path : {WTEXT("\\a"), WTEXT("\\a\\b"), WTEXT("\\a\\b\\c"), WTEXT("\\z")})
        ASSERT_EQ(store.MakeDirectory(path), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\a\\b\\c\\v"), "1"), kOk);
    EXPECT_EQ(store.Text(WTEXT("\\a\\b\\c\\v")), "1");
    ASSERT_EQ(store.Move(WTEXT("\\a"), WTEXT("\\n")), kOk);
    EXPECT_FALSE(store.Exists(WTEXT("\\a\\b\\c\\v")));
    EXPECT_EQ(store.Text(WTEXT("\\n\\b\\c\\v")), "1");
    ASSERT_EQ(store.Move(WTEXT("\\n\\b"), WTEXT("\\z\\b")), kOk);
    EXPECT_FALSE(store.Exists(WTEXT("\\n\\b\\c\\v")));
    EXPECT_EQ(store.Text(WTEXT("\\z\\b\\c\\v")), "1");
    ASSERT_EQ(store.Delete(WTEXT("\\z\\b\\c\\v")), kOk);
    ASSERT_EQ(store.Delete(WTEXT("\\z\\b\\c")), kOk);
    EXPECT_EQ(store.AttributesStatus(WTEXT("\\z\\b\\c\\v")), kNotFound);
    EXPECT_EQ(store.Put(WTEXT("\\z\\b\\c\\v")), kParentMissing);
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\z\\b\\C")), kOk);
    EXPECT_EQ(store.AttributesStatus(WTEXT("\\z\\b\\c\\v")), kNotFound);
    ASSERT_EQ(store.Put(WTEXT("\\z\\b\\c\\v"), "2"), kOk);
    EXPECT_EQ(store.Text(WTEXT("\\z\\b\\c\\v")), "2");
}

TEST(Path, TheCaseRuleAppliesToRememberedPathsToo) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\Aa")), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\Aa\\Name"), "1"), kOk);
    EXPECT_EQ(store.Text(WTEXT("\\aa\\name")), "1");
    ASSERT_EQ(StorageSetCaseSensitive(store, 1), kOk);
    EXPECT_EQ(store.AttributesStatus(WTEXT("\\aa\\name")), kNotFound);
    EXPECT_EQ(store.Text(WTEXT("\\Aa\\Name")), "1");
    ASSERT_EQ(store.Put(WTEXT("\\Aa\\name"), "2"), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\Aa\\NAMES"), "3"), kOk);
    EXPECT_EQ(store.List(WTEXT("\\Aa\\*")), Names({WTEXT("NAMES"), WTEXT("Name"), WTEXT("name")}));
    ASSERT_EQ(StorageSetCaseSensitive(store, 0), kOk);
    EXPECT_EQ(store.List(WTEXT("\\Aa\\*")).back(), WTEXT("NAMES"));
    EXPECT_EQ(store.Text(WTEXT("\\aa\\names")), "3");
}

struct NormalizeCase {
    const WChar* prefix;
    const WChar* target;
    const WChar* rest;
    const WChar* result;  // null: refused
};

TEST(NormalizePath, JoinsThreeParts) {
    const NormalizeCase cases[] = {
        {WTEXT("\\a\\"), WTEXT("b"), WTEXT("\\c"), WTEXT("\\a\\b\\c")},
        {WTEXT("\\a\\"), WTEXT("b\\"), WTEXT("\\c"), WTEXT("\\a\\b\\\\c")},
        {WTEXT("\\a\\"), WTEXT("\\\\b/d"), WTEXT(""), WTEXT("\\b\\d")},
        {WTEXT("\\a\\"), WTEXT("\\"), WTEXT("\\c"), WTEXT("\\\\c")},
        {WTEXT("\\a\\"), WTEXT(".\\b"), WTEXT(""), WTEXT("\\a\\b")},
        {WTEXT("\\a\\b\\"), WTEXT("..\\c"), WTEXT(""), WTEXT("\\a\\c")},
        {WTEXT("\\a\\b\\"), WTEXT(".x\\c"), WTEXT(""), WTEXT("\\a\\c")},
        {WTEXT("\\a\\b\\"), WTEXT("..\\..\\c"), WTEXT(""), WTEXT("\\c")},
        {WTEXT("\\a\\"), WTEXT("...\\c"), WTEXT(""), WTEXT("\\a\\...\\c")},
        {WTEXT("\\a\\"), WTEXT("..\\..\\c"), WTEXT(""), nullptr},
        {WTEXT("\\a\\"), WTEXT("\\.."), WTEXT(""), nullptr},
        {WTEXT("\\"), WTEXT("x\\..\\..\\y"), WTEXT(""), nullptr},
        {WTEXT("\\a\\"), WTEXT("b\\\\c"), WTEXT(""), nullptr},
    };
    for (const NormalizeCase& c : cases) {
        WChar* path = nullptr;
        const Status status = NormalizePath(&path, '\\', c.prefix, c.target, c.rest);
        EXPECT_EQ(status, c.result == nullptr ? kBadPath : kOk) << platform::ToUtf8(c.target);
        EXPECT_EQ(path == nullptr, c.result == nullptr);
        if (path != nullptr && c.result != nullptr) {
            EXPECT_EQ(WStringView(path), WStringView(c.result)) << platform::ToUtf8(path);
        }
        platform::HeapRelease(path);
    }
}

}  // namespace tests
