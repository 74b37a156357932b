// The sixteen functions: results, trees in memory, and what a saved file gives back.
#include <cstring>

#include "offreg/HiveFormat.h"
#include "offreg/Names.h"
#include "tests/offline/OfflineHive.h"
#include "tests/support/FaultFile.h"

using namespace offline_test;
using support::TempDir;

namespace {

constexpr uint32_t kSz = 1;
constexpr uint32_t kBinary = 3;
constexpr uint32_t kDword = 4;

TEST(OfflineRegistry, TellsCreatedFromOpenedAndWantsParents) {
    TestHive hive;
    ORHKEY key = nullptr;
    uint32_t disposition = 0;
    EXPECT_EQ(ORCreateKey(hive.Root(), WTEXT("a\\b"), nullptr, 0, nullptr, &key, nullptr), 2u);
    EXPECT_EQ(ORCreateKey(hive.Root(), WTEXT("A"), nullptr, 0, nullptr, &key, &disposition), 0u);
    EXPECT_EQ(disposition, 1u);
    EXPECT_EQ(ORCreateKey(hive.Root(), WTEXT("a\\b"), nullptr, 0, nullptr, &key, &disposition), 0u);
    EXPECT_EQ(ORCreateKey(hive.Root(), WTEXT("a\\B"), nullptr, 0, nullptr, &key, &disposition), 0u);
    EXPECT_EQ(disposition, 2u);
    for (const WChar* path :
         {WTEXT("x"), WTEXT("a\\x"), WTEXT("a\\\\b"), WTEXT("\\a"), WTEXT("a\\")}) {
        EXPECT_EQ(OROpenKey(hive.Root(), path, &key), 2u);
        EXPECT_EQ(key, nullptr);
    }
    EXPECT_EQ(ORCreateKey(hive.Root(), WTEXT(""), nullptr, 0, nullptr, &key, nullptr), 87u);
    EXPECT_EQ(ORCreateKey(hive.Root(), WTEXT("v"), nullptr, 1, nullptr, &key, nullptr), 87u);
    EXPECT_EQ(
        ORCreateKey(hive.Root(), WString(256, 'n').c_str(), nullptr, 0, nullptr, &key, nullptr),
        87u);
    EXPECT_EQ(
        ORCreateKey(hive.Root(), WString(255, 'n').c_str(), nullptr, 0, nullptr, &key, nullptr),
        0u);
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
    WChar name[16];
    uint32_t units = 0;
    EXPECT_EQ(OREnumKey(hive.Root(), 0, nullptr, &units, nullptr, nullptr, nullptr), 234u);
    EXPECT_EQ(units, 10u);
    units = 9;
    EXPECT_EQ(OREnumKey(hive.Root(), 0, name, &units, nullptr, nullptr, nullptr), 234u);
    EXPECT_EQ(units, 10u);
    WChar className[6];
    uint32_t classUnits = 6;
    EXPECT_EQ(OREnumKey(hive.Root(), 0, name, &units, className, &classUnits, nullptr), 0u);
    EXPECT_EQ(units, 9u);
    EXPECT_STREQ(std::filesystem::path(className).string().c_str(), "Class");
    EXPECT_EQ(OREnumKey(hive.Root(), 1, name, &units, nullptr, nullptr, nullptr), 259u);

    units = 1;
    EXPECT_EQ(OREnumValue(hive.Root(), 0, name, &units, nullptr, nullptr, nullptr), 234u);
    EXPECT_EQ(units, 6u);
    uint32_t type = 0;
    uint8_t data[4];
    uint32_t size = 3;
    EXPECT_EQ(OREnumValue(hive.Root(), 0, name, &units, &type, data, &size), 234u);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(ORGetValue(hive.Root(), nullptr, WTEXT("VALUE"), &type, data, &size), 0u);
    EXPECT_EQ(type, kSz);
    EXPECT_EQ(ORGetValue(hive.Root(), WTEXT("long name"), WTEXT("value"), &type, data, &size), 2u);
    EXPECT_EQ(OREnumValue(hive.Root(), 1, name, &units, nullptr, nullptr, nullptr), 259u);
}

TEST(OfflineRegistry, DeletesOnlyWhatIsEmptyAndOutlivesOpenHandles) {
    TestHive hive;
    ORHKEY parent = hive.Create(WTEXT("p"));
    ORHKEY child = hive.Create(WTEXT("p\\c"));
    EXPECT_EQ(ORDeleteKey(hive.Root(), nullptr), 87u);
    EXPECT_EQ(ORDeleteKey(parent, nullptr), 1020u);
    EXPECT_EQ(ORDeleteKey(hive.Root(), WTEXT("p\\x")), 2u);
    EXPECT_EQ(ORDeleteKey(child, nullptr), 0u);
    EXPECT_EQ(ORDeleteKey(child, nullptr), 1018u);
    EXPECT_EQ(ORSetValue(child, WTEXT("v"), kDword, "\1\0\0", 4), 1018u);
    ORHKEY again = hive.Create(WTEXT("p\\c"));
    EXPECT_EQ(ORSetValue(again, WTEXT("v"), kDword, "\1\0\0", 4), 0u);
    EXPECT_EQ(ORCloseKey(child), 0u);
    EXPECT_EQ(ORDeleteKey(hive.Root(), WTEXT("P\\C")), 0u);
    EXPECT_EQ(ORDeleteKey(hive.Root(), WTEXT("p")), 0u);
    EXPECT_EQ(ORDeleteValue(hive.Root(), WTEXT("none")), 2u);
    EXPECT_EQ(ORCloseKey(hive.Root()), 6u);
    EXPECT_EQ(ORCloseKey(nullptr), 6u);
    EXPECT_EQ(ORCloseHive(parent), 6u);
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
    const Bytes file = support::ReadBytes(dir / "a.hiv");
    EXPECT_EQ(offreg::format::Load<uint32_t>(file.data() + offreg::format::base::kMinor), 5u);
}

// The rest of the format's versions differ in how large data lies, so only that asks for a new one.
TEST(OfflineRegistry, WritesTheOldFormatWhereItCan) {
    TempDir dir;
    TestHive hive;
    hive.Set(hive.Root(), WTEXT("v"), kBinary, Pattern(16344));
    hive.Save(dir.File("a.hiv"));
    const Bytes file = support::ReadBytes(dir / "a.hiv");
    EXPECT_EQ(offreg::format::Load<uint32_t>(file.data() + offreg::format::base::kMinor), 3u);
}

TEST(OfflineRegistry, HoldsManySubkeysAndValuesAndGreatDepth) {
    constexpr uint32_t kMany = 20000;
    TempDir dir;
    {
        TestHive hive;
        ORHKEY many = hive.Create(WTEXT("many"));
        for (uint32_t i = 0; i < kMany; ++i) {
            // 7919 and the number of keys have no divisor in common: every order of arrival.
            const std::string name = "key " + std::to_string(i * 7919 % kMany);
            ORCloseKey(hive.CreateBelow(many, WString(name.begin(), name.end())));
            hive.Set(many, WString(name.begin(), name.end()), kDword, {1, 2, 3, 4});
        }
        WString path = WTEXT("deep");
        ORHKEY key = nullptr;
        for (uint32_t depth = 1; depth < 1024; ++depth) {
            ASSERT_EQ(ORCreateKey(hive.Root(), path.c_str(), nullptr, 0, nullptr, &key, nullptr),
                      0u);
            path += WTEXT("\\d");
        }
        EXPECT_EQ(ORCreateKey(hive.Root(), path.c_str(), nullptr, 0, nullptr, &key, nullptr), 0u);
        path += WTEXT("\\d");
        EXPECT_EQ(ORCreateKey(hive.Root(), path.c_str(), nullptr, 0, nullptr, &key, nullptr), 87u);
        hive.Save(dir.File("a.hiv"));
    }
    TestHive read(dir.File("a.hiv"));
    ORHKEY many = read.Open(WTEXT("many"));
    uint32_t subkeys = 0;
    uint32_t values = 0;
    EXPECT_EQ(ORQueryInfoKey(many, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr,
                             nullptr, nullptr, nullptr),
              0u);
    EXPECT_EQ(subkeys, kMany);
    EXPECT_EQ(values, kMany);
    WString last;
    for (uint32_t i = 0; i < kMany; ++i) {
        WChar name[32];
        uint32_t units = 32;
        ASSERT_EQ(OREnumKey(many, i, name, &units, nullptr, nullptr, nullptr), 0u);
        ASSERT_LT(offreg::CompareNames(last, name), 0);
        last = name;
    }
    // Deletion of the first one each time, as tree deletion does it.
    for (uint32_t i = 0; i < kMany; ++i) {
        WChar name[32];
        uint32_t units = 32;
        ASSERT_EQ(OREnumKey(many, 0, name, &units, nullptr, nullptr, nullptr), 0u);
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

TEST(OfflineRegistry, OpeningTellsMissingFromEmptyFromDamaged) {
    TempDir dir;
    ORHKEY hive = nullptr;
    EXPECT_EQ(OROpenHive(dir.File("none").c_str(), &hive), 2u);
    EXPECT_EQ(OROpenHive(support::Wide(dir / "no" / "none").c_str(), &hive), 3u);
    support::WriteBytes(dir / "empty", {});
    EXPECT_EQ(OROpenHive(dir.File("empty").c_str(), &hive), 1009u);
    support::WriteBytes(dir / "text", Bytes(10000, 'x'));
    EXPECT_EQ(OROpenHive(dir.File("text").c_str(), &hive), 1017u);
    EXPECT_EQ(hive, nullptr);
}

TEST(OfflineRegistry, ASaveIsCompleteOrNotThere) {
    TempDir dir;
    TestHive hive;
    hive.Set(hive.Root(), WTEXT("big"), kBinary, Pattern(9 << 20));
    const WString path = dir.File("a.hiv");
    using support::FileCall;
    for (const auto& [kind, number] : {std::pair{FileCall::Write, 1},
                                       {FileCall::Write, 2},
                                       {FileCall::Write, 3},
                                       {FileCall::Flush, 1}}) {
        support::FaultFile faults;
        faults.Fail(kind, static_cast<uint64_t>(number), platform::kErrorDiskFull);
        EXPECT_EQ(ORSaveHive(hive.Root(), path.c_str(), 6, 1), 112u);
        EXPECT_EQ(faults.Hits(), 1u);
        EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
    }
    EXPECT_EQ(ORSaveHive(hive.Root(), path.c_str(), 6, 9), 87u);
    EXPECT_EQ(ORSaveHive(hive.Root(), support::Wide(dir / "no" / "a.hiv").c_str(), 6, 1), 3u);
    hive.Save(path);
    EXPECT_EQ(ORSaveHive(hive.Root(), path.c_str(), 6, 1), 183u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Path()), {}), 1);
}

}  // namespace
