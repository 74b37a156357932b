#include "tests/storage/namespace/Store.h"

namespace tests {

namespace container = support::container;
using container::Directory;
using container::File;
using container::Link;

namespace {

Bytes Layout(std::vector<container::Item> children) {
    return container::Builder({}, Directory(u"", std::move(children))).Finish();
}

}  // namespace

TEST(Link, IsFollowedOnTheWay) {
    Store store(
        Layout({Directory(u"dir", {File(u"f", Bytes(2, 'f')), Link(u"up", u"..\\file"),
                                   Link(u"odd", u".x\\file"), Link(u"self", u"f")}),
                File(u"file", Bytes(3, 'g')), Link(u"abs", u"\\\\dir"), Link(u"rel", u".\\dir\\"),
                Link(u"two", u"abs/up"), Link(u"far", u"..\\file"), Link(u"lost", u"none"),
                Link(u"bad", u"dir\\\\f")}));
    EXPECT_EQ(store.Text(WTEXT("\\abs\\f")), "ff");
    EXPECT_EQ(store.Text(WTEXT("rel\\f")), "ff");
    EXPECT_EQ(store.Text(WTEXT("\\abs\\self\\")), "ff");
    EXPECT_EQ(store.Text(WTEXT("\\dir\\up")), "ggg");
    EXPECT_EQ(store.Text(WTEXT("\\dir\\odd")), "ggg");
    EXPECT_EQ(store.Text(WTEXT("\\two")), "ggg");
    EXPECT_EQ(store.Text(WTEXT("\\far")), "status -20");
    EXPECT_EQ(store.Text(WTEXT("\\bad")), "status -20");
    EXPECT_EQ(store.Text(WTEXT("\\lost")), "status -20");
    EXPECT_EQ(store.Text(WTEXT("\\abs\\none")), "status -20");
    EXPECT_EQ(store.MakeDirectory(WTEXT("\\lost\\x")), kBadPath);
    // Attributes and times are the link's own.
    EXPECT_EQ(store.Attributes(WTEXT("\\abs")), kAttrLink);
    EXPECT_EQ(store.Attributes(WTEXT("\\abs\\f")), kAttrFile);
    uint8_t empty = 1;
    EXPECT_EQ(StorageIsDirectoryEmpty(store, WTEXT("\\abs"), &empty), kOk);
    EXPECT_EQ(empty, 0);
    // Full names tell where the link leads.
    const auto direct = store.List(WTEXT("\\dir\\*"), 3 | kAttrLink, kFindFullName);
    EXPECT_EQ(direct.size(), 4u);
    EXPECT_EQ(store.List(WTEXT("\\abs\\*"), 3 | kAttrLink, kFindFullName), direct);
}

TEST(Link, IsDeletedAndMovedItself) {
    Store store(Layout({Directory(u"dir", {File(u"f", Bytes(2, 'f'))}), Link(u"abs", u"\\dir")}));
    ASSERT_EQ(store.Put(WTEXT("\\abs\\g"), "new"), kOk);
    EXPECT_EQ(store.Text(WTEXT("\\dir\\g")), "new");
    ASSERT_EQ(store.Move(WTEXT("\\abs"), WTEXT("\\dir\\abs")), kOk);
    EXPECT_EQ(store.Text(WTEXT("\\dir\\abs\\abs\\g")), "new");
    ASSERT_EQ(store.Delete(WTEXT("\\dir\\abs")), kOk);
    EXPECT_EQ(store.Text(WTEXT("\\dir\\f")), "ff");
    store.ReadSound();
}

// A chain of 31 replacements ends well, one of 32 does not, and neither does a ring.
TEST(Link, IsFollowedSoFarAndNoFarther) {
    std::vector<container::Item> children = {File(u"l0", Bytes(1, 'e')), Link(u"ring", u"ring")};
    const auto name = [](int i) {
        const WString text = WTEXT("l") + Store::Number(i);
        return Narrow(text);
    };
    for (int i = 1; i <= 33; ++i) children.push_back(Link(name(i), name(i - 1)));
    Store store(Layout(std::move(children)));
    EXPECT_EQ(store.Text(WTEXT("\\l31")), "e");
    EXPECT_EQ(store.Text(WTEXT("\\l32")), "status -20");
    EXPECT_EQ(store.Text(WTEXT("\\ring")), "status -20");
    EXPECT_EQ(store.Text(WTEXT("\\l31")), "e");
}

}  // namespace tests
