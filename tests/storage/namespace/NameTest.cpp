#include "storage/namespace/Directory.h"
#include "tests/storage/namespace/Store.h"

namespace tests {

TEST(Name, RefusesSeparatorsAndControlUnits) {
    Store store;
    const WString prefix = WTEXT("\\");
    for (WChar unit = 0; unit < 128; ++unit) {
        const bool bad = unit < 32 || WString(WTEXT("/\\?*:<>|")).find(unit) != WString::npos;
        const WString name{'a', unit, 'b'};
        EXPECT_EQ(CheckName(name), !bad) << int{unit};
    }
    EXPECT_TRUE(CheckName(WTEXT("")));
    EXPECT_EQ(store.MakeDirectory(prefix + WTEXT("a?")), kBadName);
    EXPECT_EQ(store.Put(WTEXT("\\a\x1f")), kBadName);
    ASSERT_EQ(store.Put(WTEXT("\\ok")), kOk);
    EXPECT_EQ(store.Move(WTEXT("\\ok"), WTEXT("\\o<k")), kBadName);
    EXPECT_EQ(store.Delete(WTEXT("\\no<")), kNotFound);
    EXPECT_TRUE(store.Exists(WTEXT("\\ok")));
}

// Names of every length around the entry's 22 units and the pages behind it.
TEST(Name, KeepsEveryLength) {
    for (const uint32_t pageSize : {256u, 512u, 65536u}) {
        Store store(pageSize);
        const uint32_t perPage = (pageSize - 32) / 2;
        std::vector<uint32_t> lengths = {1, 21, 22, 23, 300};
        for (const uint32_t length : {22 + perPage, 23 + perPage, 22 + 2 * perPage})
            if (length < 3000) lengths.push_back(length);
        for (const uint32_t length : lengths)
            ASSERT_EQ(store.Put(WTEXT("\\") + Repeat('n', length), std::to_string(length)), kOk);
        const auto reading = store.ReadSound();
        EXPECT_EQ(reading.root.children.size(), lengths.size());
        for (const uint32_t length : lengths)
            EXPECT_EQ(store.Text(WTEXT("\\") + Repeat('N', length)), std::to_string(length));
        std::sort(lengths.begin(), lengths.end());
        const auto listed = store.List(WTEXT("\\*"));
        ASSERT_EQ(listed.size(), lengths.size());
        for (size_t i = 0; i < lengths.size(); ++i) EXPECT_EQ(listed[i].size(), lengths[i]);
    }
}

TEST(Name, RenamingTakesAndGivesBackNamePages) {
    Store store;
    const WString dir = WTEXT("\\");
    const uint32_t lengths[] = {5, 23, 22, 262, 263, 502, 503, 24, 263, 3};
    WString name = WTEXT("start");
    ASSERT_EQ(store.Put(dir + name, "kept"), kOk);
    const uint32_t used = store.ReadSound().usedPages;
    WChar unit = 'a';
    for (const uint32_t length : lengths) {
        const WString next = Repeat(unit++, length);
        ASSERT_EQ(store.Move(dir + name, dir + next), kOk) << length;
        EXPECT_FALSE(store.Exists(dir + name));
        name = next;
        EXPECT_EQ(store.Text(dir + name), "kept");
        const auto reading = store.ReadSound();
        ASSERT_EQ(reading.root.children.size(), 1u);
        EXPECT_EQ(Widen(reading.root.children[0].name), name);
        const uint32_t tail = length <= 22 ? 0 : (length - 22 + 239) / 240;
        EXPECT_EQ(reading.usedPages, used + tail) << length;
        EXPECT_EQ(store.Text(dir + name), "kept");
    }
}

// Names that agree in their first 22 units are told apart by tails that are read only then.
TEST(Name, SharesTheFirst22Units) {
    Store store;
    const WString stem = WTEXT("\\") + Repeat('q', 22);
    const WString tails[] = {WTEXT("c"), WTEXT(""), WTEXT("B"), WTEXT("a"), Repeat('b', 300)};
    for (const WString& tail : tails) ASSERT_EQ(store.Put(stem + tail), kOk);
    for (int round = 0; round < 2; ++round) {
        for (const WString& tail : tails) EXPECT_TRUE(store.Exists(stem + tail));
        EXPECT_FALSE(store.Exists(stem + WTEXT("bb")));
        EXPECT_FALSE(store.Exists(stem + WTEXT("ca")));
        EXPECT_EQ(store.MakeDirectory(stem + WTEXT("A")), kExists);
        store.Reopen();
    }
    // A look-up first, then the whole order.
    EXPECT_TRUE(store.Exists(stem + WTEXT("b")));
    const auto names = store.List(WTEXT("\\*"));
    ASSERT_EQ(names.size(), 5u);
    for (size_t i = 1; i < names.size(); ++i)
        EXPECT_LT(platform::CompareFolded(names[i - 1], names[i]), 0);
    store.Reopen();
    ASSERT_EQ(store.Put(stem + WTEXT("bc")), kOk);
    ASSERT_EQ(store.Delete(stem + WTEXT("a")), kOk);
    ASSERT_EQ(store.Delete(stem), kOk);
    EXPECT_EQ(store.List(WTEXT("\\*")).size(), 4u);
    EXPECT_EQ(store.ReadSound().root.children.size(), 4u);
}

}  // namespace tests
