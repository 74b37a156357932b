// SPDX-License-Identifier: MIT
// What the offline registry functions have beyond what a store on them shows: the code of each way
// in which a call ends, room, and classes.
#include "offreg/OfflineRegistry.h"

#include "tests/offline/SavedValue.h"

using namespace offline_test;
using support::TempDir;

namespace {

constexpr uint32_t kDword = 4;

// Closes the handles of its keys with itself.
struct OpenHive {
    OpenHive() { EXPECT_EQ(ORCreateHive(&root), 0u); }
    explicit OpenHive(const WString& path) { EXPECT_EQ(OROpenHive(path.c_str(), &root), 0u); }
    ~OpenHive() { EXPECT_EQ(ORCloseHive(root), 0u); }
    OpenHive(const OpenHive&) = delete;
    OpenHive& operator=(const OpenHive&) = delete;

    ORHKEY root = nullptr;
};

TEST(OfflineRegistry, TellsWhatCameOfEveryCall) {
    const OpenHive hive;
    TempDir dir;
    support::WriteBytes(dir / "empty", {});
    support::WriteBytes(dir / "text", Bytes(10000, 'x'));
    ORHKEY root = hive.root, key = nullptr, none = nullptr;
    uint32_t disposition = 0;
    const auto create = [&](const WString& path, uint32_t options = 0) {
        return ORCreateKey(root, path.c_str(), nullptr, options, nullptr, &key, &disposition);
    };
    const WString file = dir.File("a.hiv"), nowhere = support::Wide(dir / "no" / "a.hiv");
    EXPECT_EQ(create(WTEXT("A")), 0u);
    EXPECT_EQ(disposition, 1u);
    ORHKEY parent = key;
    EXPECT_EQ(create(WTEXT("a\\b")), 0u);
    EXPECT_EQ(create(WTEXT("a\\B")), 0u);
    EXPECT_EQ(disposition, 2u);
    ORHKEY child = key;
    const Bytes noDescriptor = {9, 0, 0, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
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
        {ORSetKeySecurity(root, 4, noDescriptor.data()), 1338},
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

TEST(OfflineRegistry, EnumerationTellsTheRoomItNeedsAndTheClass) {
    TempDir dir;
    {
        const OpenHive hive;
        ORHKEY key = nullptr;
        EXPECT_EQ(ORCreateKey(hive.root, WTEXT("long name"), WTEXT("Cl\x0416ss"), 0, nullptr, &key,
                              nullptr),
                  0u);
        EXPECT_EQ(ORSetValue(hive.root, WTEXT("value"), kDword, "\1\2\3", 4), 0u);
        EXPECT_EQ(ORSaveHive(hive.root, dir.File("a").c_str(), 6, 1), 0u);
    }
    const OpenHive hive(dir.File("a"));
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
        EXPECT_EQ(row.value ? OREnumValue(hive.root, row.index, name, &units, nullptr, data, &size)
                            : OREnumKey(hive.root, row.index, row.room == 0 ? nullptr : name,
                                        &units, className, &classUnits, nullptr),
                  row.answer);
        if (row.units != 0) {
            EXPECT_EQ(units, row.units);
        }
    }
    EXPECT_EQ(WString(className), WTEXT("Cl\x0416ss"));
    uint32_t units = 16, type = 0, size = 3;
    EXPECT_EQ(OREnumValue(hive.root, 0, name, &units, &type, data, &size), 234u);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(ORGetValue(hive.root, nullptr, WTEXT("VALUE"), &type, data, &size), 0u);
    EXPECT_EQ(type, kDword);
    EXPECT_EQ(ORGetValue(hive.root, WTEXT("long name"), WTEXT("value"), &type, data, &size), 2u);
}

}  // namespace
