// SPDX-License-Identifier: MIT
// The sixteen functions: results, trees in memory, and what a saved file gives back.
#include <cstring>

#include "offreg/HiveFormat.h"
#include "offreg/Names.h"
#include "tests/offline/OfflineHive.h"

using namespace offline_test;
using support::TempDir;

namespace {

constexpr uint32_t kSz = 1;
constexpr uint32_t kBinary = 3;
constexpr uint32_t kDword = 4;

// The code of each way in which a call ends.
TEST(OfflineRegistry, TellsWhatCameOfEveryCall) {
    TestHive hive;
    TempDir dir;
    support::WriteBytes(dir / "empty", {});
    support::WriteBytes(dir / "text", Bytes(10000, 'x'));
    ORHKEY root = hive.Root(), key = nullptr, none = nullptr;
    uint32_t disposition = 0;
    const auto create = [&](const WString& path, uint32_t options = 0) {
        return ORCreateKey(root, path.c_str(), nullptr, options, nullptr, &key, &disposition);
    };
    const WString file = dir.File("a.hiv"), nowhere = support::Wide(dir / "no" / "a.hiv");
    EXPECT_EQ(create(WTEXT("A")), 0u);
    EXPECT_EQ(disposition, 1u);
    ORHKEY parent = hive.Open(WTEXT("a"));
    EXPECT_EQ(create(WTEXT("a\\b")), 0u);
    EXPECT_EQ(create(WTEXT("a\\B")), 0u);
    EXPECT_EQ(disposition, 2u);
    ORHKEY child = key;
    const std::pair<uint32_t, uint32_t> answers[] = {
        {create(WTEXT("no\\parent")), 2},
        {create(WTEXT("")), 87},
        {create(WTEXT("v"), 1), 87},
        {create(WString(256, 'n')), 87},
        {create(WString(255, 'n')), 0},
        {OROpenKey(root, WTEXT("x"), &none), 2},
        {OROpenKey(root, WTEXT("a\\x"), &none), 2},
        {OROpenKey(root, WTEXT("a\\\\b"), &none), 2},
        {OROpenKey(root, WTEXT("\\a"), &none), 2},
        {OROpenKey(root, WTEXT("a\\"), &none), 2},
        {ORDeleteKey(root, nullptr), 87},
        {ORDeleteKey(parent, nullptr), 1020},
        {ORDeleteKey(root, WTEXT("a\\x")), 2},
        {ORDeleteKey(child, nullptr), 0},
        {ORDeleteKey(child, nullptr), 1018},
        {ORSetValue(child, WTEXT("v"), kDword, "\1\0\0", 4), 1018},
        {ORCloseKey(child), 0},
        {ORDeleteKey(root, WTEXT("A")), 0},
        {ORDeleteValue(root, WTEXT("none")), 2},
        {ORCloseKey(root), 6},
        {ORCloseKey(nullptr), 6},
        {ORCloseHive(parent), 6},
        {OROpenHive(dir.File("none").c_str(), &none), 2},
        {OROpenHive(nowhere.c_str(), &none), 3},
        {OROpenHive(dir.File("empty").c_str(), &none), 1009},
        {OROpenHive(dir.File("text").c_str(), &none), 1017},
        {ORSaveHive(root, file.c_str(), 6, 9), 87},
        {ORSaveHive(root, nowhere.c_str(), 6, 1), 3},
        {ORSaveHive(root, file.c_str(), 6, 1), 0},
        {ORSaveHive(root, file.c_str(), 6, 1), 183},
    };
    for (size_t i = 0; i < std::size(answers); ++i)
        EXPECT_EQ(answers[i].first, answers[i].second) << i;
    EXPECT_EQ(none, nullptr);
}

TEST(OfflineRegistry, NamesFoldLikeTheRegistrysOwn) {
    TestHive hive;
    hive.Create(WTEXT("\x00E4\x0436z"));
    hive.Set(hive.Open(WTEXT("\x00C4\x0416Z")), WTEXT("\x00FF"), kDword, {1, 0, 0, 0});
    EXPECT_EQ(hive.Get(hive.Open(WTEXT("\x00E4\x0416z")), WTEXT("\x0178")).size(), 4u);
    // Each unit by itself: no folding into two, none out of the Turkish dotless i.
    EXPECT_NE(offreg::CompareNames(WTEXT("\x00DF"), WTEXT("SS")), 0);
    EXPECT_NE(offreg::CompareNames(WTEXT("\x0131"), WTEXT("I")), 0);
    EXPECT_LT(offreg::CompareNames(WTEXT("a"), WTEXT("B")), 0);
    EXPECT_LT(offreg::CompareNames(WTEXT("a"), WTEXT("AB")), 0);
}

TEST(OfflineRegistry, EnumerationTellsTheRoomItNeeds) {
    TestHive hive;
    hive.Create(WTEXT("long name"), WTEXT("Class"));
    hive.Set(hive.Root(), WTEXT("value"), kSz, TextBytes(WTEXT("x")));
    const struct {
        bool value;
        uint32_t index, room, answer, units;
    } rows[] = {{false, 0, 0, 234, 10}, {false, 0, 9, 234, 10}, {false, 0, 10, 0, 9},
                {false, 1, 10, 259, 0}, {true, 0, 1, 234, 6},   {true, 0, 6, 0, 5},
                {true, 1, 6, 259, 0}};
    WChar name[16], className[6];
    uint8_t data[4];
    for (const auto& row : rows) {
        uint32_t units = row.room, classUnits = 6, size = 4;
        EXPECT_EQ(row.value
                      ? OREnumValue(hive.Root(), row.index, name, &units, nullptr, data, &size)
                      : OREnumKey(hive.Root(), row.index, row.room == 0 ? nullptr : name, &units,
                                  className, &classUnits, nullptr),
                  row.answer);
        if (row.units != 0) {
            EXPECT_EQ(units, row.units);
        }
    }
    EXPECT_EQ(WString(className), WTEXT("Class"));
    uint32_t units = 16, type = 0, size = 3;
    EXPECT_EQ(OREnumValue(hive.Root(), 0, name, &units, &type, data, &size), 234u);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(ORGetValue(hive.Root(), nullptr, WTEXT("VALUE"), &type, data, &size), 0u);
    EXPECT_EQ(type, kSz);
    EXPECT_EQ(ORGetValue(hive.Root(), WTEXT("long name"), WTEXT("value"), &type, data, &size), 2u);
}

TEST(OfflineRegistry, ASavedHiveComesBackWhole) {
    TempDir dir;
    std::vector<Item> before;
    {
        TestHive hive;
        ORHKEY key = hive.Create(WTEXT("Sub \x00FC\x4E2D"), WTEXT("Cl\x0416ss"));
        hive.Set(key, WTEXT(""), kSz, TextBytes(WTEXT("unnamed")));
        hive.Set(key, WTEXT("\x0416"), 0xFFFF0007, {});
        for (size_t size : {1, 4, 5, 16343, 16344, 16345, 32688, 32689, 1500000}) {
            hive.Set(key, WTEXT("size ") + WString(size % 97, 'n'), kBinary, Pattern(size));
        }
        hive.Set(key, WString(16383, 'V'), kDword, {1, 2, 3, 4});
        hive.Create(WTEXT("Sub \x00FC\x4E2D\\") + WString(255, 'k'));
        hive.Save(dir.File("a.hiv"));
        before = Picture(hive);
    }
    ASSERT_EQ(before.size(), 15u);
    TestHive read(dir.File("a.hiv"));
    EXPECT_TRUE(Picture(read) == before);
    // Only large data asks for the new version of the format.
    TestHive small;
    small.Set(small.Root(), WTEXT("v"), kBinary, Pattern(16344));
    small.Save(dir.File("b.hiv"));
    for (const auto& [name, minor] : {std::pair{"a.hiv", 5u}, {"b.hiv", 3u}}) {
        const Bytes file = support::ReadBytes(dir / name);
        EXPECT_EQ(offreg::format::Load<uint32_t>(file.data() + offreg::format::base::kMinor),
                  minor);
    }
}

TEST(OfflineRegistry, HoldsManySubkeysAndValuesAndGreatDepth) {
    constexpr uint32_t kMany = 20000;
    TempDir dir;
    {
        TestHive hive;
        ORHKEY many = hive.Create(WTEXT("many"));
        for (uint32_t i = 0; i < kMany; ++i) {
            // 7919 and the number of keys have no divisor in common: every order of arrival.
            const WString name = platform::FromUtf8("key " + std::to_string(i * 7919 % kMany));
            ORCloseKey(hive.CreateBelow(many, name));
            hive.Set(many, name, kDword, {1, 2, 3, 4});
        }
        WString path = WTEXT("d");
        for (uint32_t depth = 1; depth <= 1024; ++depth, path += WTEXT("\\d")) hive.Create(path);
        ORHKEY key = nullptr;
        EXPECT_EQ(ORCreateKey(hive.Root(), path.c_str(), nullptr, 0, nullptr, &key, nullptr), 87u);
        hive.Save(dir.File("a.hiv"));
    }
    TestHive read(dir.File("a.hiv"));
    ORHKEY many = read.Open(WTEXT("many"));
    WString last;
    WChar name[32];
    uint32_t units = 32;
    for (uint32_t i = 0; i < kMany; ++i, units = 32) {
        ASSERT_EQ(OREnumKey(many, i, name, &units, nullptr, nullptr, nullptr), 0u);
        ASSERT_LT(offreg::CompareNames(last, name), 0);
        last = name;
    }
    // Deletion of the first one each time, as tree deletion does it.
    while (OREnumKey(many, 0, name, &(units = 32), nullptr, nullptr, nullptr) == 0) {
        ASSERT_EQ(ORDeleteKey(many, name), 0u);
        ASSERT_EQ(ORDeleteValue(many, name), 0u);
    }
    EXPECT_EQ(ORDeleteKey(many, nullptr), 0u);
}

TEST(OfflineRegistry, KeysOfOneDescriptorShareItInTheFile) {
    TempDir dir;
    {
        TestHive hive;
        uint32_t size = 0;
        ASSERT_EQ(ORGetKeySecurity(hive.Root(), 7, nullptr, &size), 234u);
        Bytes descriptor(size);
        ASSERT_EQ(ORGetKeySecurity(hive.Root(), 7, descriptor.data(), &size), 0u);
        ORHKEY first = hive.Create(WTEXT("a"));
        ORHKEY second = hive.Create(WTEXT("b"));
        hive.Create(WTEXT("b\\c"));
        descriptor[3] |= 0x10;  // the discretionary list is protected
        EXPECT_EQ(ORSetKeySecurity(first, 4, descriptor.data()), 0u);
        EXPECT_EQ(ORSetKeySecurity(second, 4, descriptor.data()), 0u);
        descriptor[0] = 9;
        EXPECT_EQ(ORSetKeySecurity(second, 4, descriptor.data()), 1338u);
        hive.Save(dir.File("a.hiv"));
    }
    const Bytes file = support::ReadBytes(dir / "a.hiv");
    size_t cells = 0;
    for (size_t at = 4096; at + 4 < file.size(); at += 8) {
        if (std::memcmp(&file[at + 4], "sk\0\0", 4) == 0) ++cells;
    }
    EXPECT_EQ(cells, 2u);
    TestHive read(dir.File("a.hiv"));
    for (const auto& [path, isProtected] :
         {std::pair{WTEXT("a"), true}, {WTEXT("b"), true}, {WTEXT("b\\c"), false}}) {
        Bytes descriptor(1024);
        uint32_t size = 1024;
        ASSERT_EQ(ORGetKeySecurity(read.Open(path), 4, descriptor.data(), &size), 0u);
        EXPECT_EQ((descriptor[3] & 0x10) != 0, isProtected);
    }
}

}  // namespace
