// SPDX-License-Identifier: MIT
// The C++ objects over the shipped library.
#include <gtest/gtest.h>

#include <zrfs/store.hpp>

#include <algorithm>
#include <cmath>
#include <fstream>

#include "tests/support/TempDir.h"

namespace {

using zrfs::Value;

struct Objects : testing::Test {
    support::TempDir folder;
    zrfs::Store store{zrfs::Text(folder.File("objects.fbr"))};
    zrfs::WriteLock lock{store};
};

FBR_STATUS StatusOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().category(), zrfs::category());
        return static_cast<FBR_STATUS>(error.code().value());
    }
    return FSSTATUS_SUCCESS;
}

TEST_F(Objects, ValuesComeBackAsTheyWentIn) {
    const zrfs::Key key = store.create("a\\b");
    const std::vector<std::pair<std::string, Value>> values = {
        {"binary", Value::binary(zrfs::Bytes(5000, 7))},
        {"dword", Value::dword(0xFFFFFFFF)},
        {"empty", {77, {}}},
        {"exact", {3, zrfs::Bytes(512, 1)}},  // as much as the first buffer holds
        {"qword", Value::qword(1ull << 63)},
        {"text", Value::text("gr\xC3\xBC\xC3\x9F"
                             "e \xF0\x9F\x98\x80")},
        {"texts", Value::texts({"a", "", "bc"})}};
    for (const auto& [name, value] : values) key.set(name, value);
    std::vector<std::pair<std::string, Value>> found;
    for (const auto& [name, value] : key.values()) found.emplace_back(name, value);
    EXPECT_EQ(found, values);

    EXPECT_EQ(key.get("dword").number(), 0xFFFFFFFFu);
    EXPECT_EQ(key.get("qword").number(), 1ull << 63);
    EXPECT_EQ(key.get("text").text(),
              "gr\xC3\xBC\xC3\x9F"
              "e \xF0\x9F\x98\x80");
    EXPECT_EQ(key.get("texts").texts(), (std::vector<std::string>{"a", "bc"}));
    EXPECT_EQ(key.get("text").number(), std::nullopt);
    EXPECT_EQ(key.get("dword").text(), std::nullopt);
    EXPECT_TRUE(key.remove_value("dword"));
    EXPECT_FALSE(key.remove_value("dword"));
    EXPECT_FALSE(key.try_get("dword"));
}

TEST(ObjectsText, GoesBetweenTheFormsAndBack) {
    const zrfs::WideString lone = {0x61, 0xD800, 0x62, 0xDC00, 0xDC00, 0xD83D, 0xDE00, 0xDE00};
    EXPECT_EQ(zrfs::to_utf16("\xF0\x9F\x98\x80"), (zrfs::WideString{0xD83D, 0xDE00}));
    EXPECT_EQ(zrfs::to_utf16(zrfs::to_utf8(lone)), lone);
    EXPECT_EQ(zrfs::to_utf16("\xEF\xBF\xBD"), zrfs::WideString{0xFFFD});
    for (const char* bad : {"\xFF", "\xC0\x80", "\xE2\x82", "\xF4\x90\x80\x80", "\x80",
                            "a\xE2z\x82", "\xED\xA0\xBD\xED\xB8\x80"}) {
        EXPECT_EQ(StatusOf([&] { zrfs::Text{bad}; }), FSSTATUS_INVALID_NAME) << bad;
        EXPECT_EQ(StatusOf([&] { Value::texts({bad}); }), FSSTATUS_INVALID_NAME) << bad;
    }
    EXPECT_EQ(StatusOf([] { Value::texts({"a", std::string("b\0c", 3)}); }), FSSTATUS_INVALID_NAME);
    // Bytes that lie about their size or end.
    EXPECT_EQ((Value{FBR_TYPE_SZ, {0x61, 0, 0x62}}).text(), "a");
    EXPECT_EQ((Value{FBR_TYPE_MULTI_SZ, {0x61, 0}}).texts(), std::vector<std::string>{"a"});
    EXPECT_EQ((Value{FBR_TYPE_MULTI_SZ, {}}).texts(), std::vector<std::string>{});
    EXPECT_EQ((Value{FBR_TYPE_DWORD, {1, 2, 3}}).number(), std::nullopt);
    EXPECT_EQ((Value{FBR_TYPE_DWORD_BE, {0, 0, 1, 2}}).number(), 258u);
}

TEST_F(Objects, KeysAreMadeFoundRenamedAndDeleted) {
    for (const char* name : {"\\k\\b", "k\\a", "k\\c"}) store.create(name);
    zrfs::Key key = store.open("k");
    std::vector<std::string> names;
    std::ranges::copy(key.subkeys(), std::back_inserter(names));
    EXPECT_EQ(names, (std::vector<std::string>{"a", "b", "c"}));
    names.clear();
    for (const std::string& name : store.open("k").subkeys()) names.push_back(name);
    EXPECT_EQ(names, (std::vector<std::string>{"a", "b", "c"}));
    zrfs::Key a = key.open("a");
    a.rename("z");
    EXPECT_EQ(a.path(), "\\k\\z");
    EXPECT_EQ(a.name(), "z");
    EXPECT_LT(std::chrono::abs(std::chrono::system_clock::now() - a.modified()),
              std::chrono::minutes(5));
    std::move(a).remove();
    EXPECT_FALSE(store.find("k\\z"));
    EXPECT_EQ(StatusOf([&] { std::move(key).remove(); }), FSSTATUS_DIR_NOT_EMPTY);
    for (const char* root : {"", "\\", "\\\\"})
        EXPECT_EQ(StatusOf([&] { store.remove_tree(root); }), FSSTATUS_INVALID_PARAMETER);
    EXPECT_TRUE(store.find("k\\c"));
    store.remove_tree("k");
    EXPECT_EQ(StatusOf([&] { store.open("k"); }), FSSTATUS_NOT_FOUND);
    store.compact();
}

// The root's page has it, as a double.
TEST(ObjectsTime, IsOneOfACalendarOrRefused) {
    const support::TempDir folder;
    const auto at = [&](double date) {
        { const zrfs::Store made{zrfs::Text(folder.File("x.fbr"))}; }
        std::fstream file(folder / "x.fbr", std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(2 * 512 + 60).write(reinterpret_cast<const char*>(&date), sizeof date);
        file.close();
        return zrfs::Store(zrfs::Text(folder.File("x.fbr"))).root().modified();
    };
    using namespace std::chrono;
    EXPECT_EQ(at(45291.25), sys_days(2023y / December / 31) + 6h);
    for (const double none : {-1.0, 3e7, 1e300, std::nan("")})
        EXPECT_EQ(StatusOf([&] { at(none); }), FSSTATUS_FILE_CORRUPT) << none;
}

TEST_F(Objects, KeysStandBesideTheValuesOfTheirNames) {
    const zrfs::Key top = store.create("top");
    top.set("way", Value::dword(1));
    EXPECT_EQ(StatusOf([&] { store.remove_tree("top\\way"); }), FSSTATUS_NOT_FOUND);
    zrfs::Key end = top.create("way\\end");
    EXPECT_EQ(StatusOf([&] { end.rename("a\\b"); }), FSSTATUS_INVALID_NAME);
    // A name with a zero is not that which ends there.
    const std::string zero("way\0x", 5);
    EXPECT_FALSE(top.find(zero) || top.try_get(zero) || top.remove_value(zero));
    EXPECT_EQ(StatusOf([&] { store.remove_tree("top\\" + zero); }), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(StatusOf([&] { top.set(zero, Value::dword(1)); }), FSSTATUS_INVALID_NAME);
    EXPECT_EQ(StatusOf([&] { top.create(zero); }), FSSTATUS_INVALID_NAME);
    EXPECT_EQ(StatusOf([&] { end.rename(zero); }), FSSTATUS_INVALID_NAME);
    EXPECT_EQ(*top.subkeys().begin(), "way");
    EXPECT_EQ(top.get("way").number(), 1u);
    EXPECT_TRUE(top.remove_value("way"));
    EXPECT_TRUE(top.find("way\\end"));
}

TEST(ObjectsLocks, AChangeWithoutOneFailsWithItsStatus) {
    support::TempDir folder;
    zrfs::Store store{zrfs::Text(folder.File("objects.fbr"))};
    const zrfs::Key root = store.root();
    EXPECT_EQ(StatusOf([&] { root.set("v", Value::dword(1)); }), FSSTATUS_LOCK_FAILED);
    {
        const zrfs::ReadLock lock(store);
        EXPECT_EQ(StatusOf([&] { root.set("v", Value::dword(1)); }), FSSTATUS_LOCK_FAILED);
    }
    {
        const zrfs::WriteLock lock(store);
        root.set("v", Value::dword(1));
    }
    EXPECT_EQ(root.get("v"), Value::dword(1));
    EXPECT_EQ(StatusOf([&] { root.get("w"); }), FSSTATUS_NOT_FOUND);
    try {
        root.get(std::string("w\0x", 3));
        ADD_FAILURE();
    } catch (const std::system_error& error) {
        EXPECT_STREQ(error.what(), "read value w\\0x: there is no such key, value or file");
    }
}

}  // namespace
