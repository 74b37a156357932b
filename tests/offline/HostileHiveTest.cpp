// Hives that lie: every one of them is refused or read as far as it can be, and never more.
#include <random>

#include "offreg/HiveFormat.h"
#include "offreg/HiveReader.h"
#include "offreg/HiveWriter.h"
#include "tests/offline/OfflineHive.h"

using namespace offline_test;
using namespace offreg;
namespace fmt_ = offreg::format;

namespace {

// A hive with one cell of every kind that the writer makes.
Bytes SampleHive() {
    Hive hive;
    Key& root = hive.Root();
    root.name = WTEXT("ROOT");
    hive.SetSecurity(root, {1, 0, 4, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    for (int i = 0; i < 600; ++i) {
        const std::string name = "k" + std::to_string(i);
        hive.AddKey(root, WString(name.begin(), name.end()))->lastWrite = 5;
    }
    Key* key = root.subkeys.Find(WTEXT("k7"));
    key->className = WTEXT("Class");
    key->values.Add(WTEXT("inline"))->data = {1, 2, 3};
    key->values.Add(WTEXT("\x0416"))->data = Pattern(100);
    key->values.Add(WTEXT("big"))->data = Pattern(40000);
    hive.AddKey(*key, WTEXT("below"));
    Bytes file;
    EXPECT_EQ(WriteHive(hive, 1, WTEXT("sample"), &file), 0u);
    return file;
}

void Seal(Bytes& file) {
    fmt_::Store(file.data() + fmt_::base::kChecksum, fmt_::Checksum(file.data()));
}

// What came of reading a file: the result, how much was left out, and how many keys and values
// there are.
struct Outcome {
    uint32_t error = 0;
    uint64_t leftOut = 0;
    size_t items = 0;
    std::string told;  // the first thing that was left out
};

Outcome Read(const Bytes& file) {
    // A copy of exactly this size, so that the address sanitizer sees the byte behind the end.
    const std::vector<uint8_t> exact(file.begin(), file.end());
    Hive hive;
    LeftOut leftOut;
    Outcome outcome;
    outcome.error = ReadHive(exact.data(), exact.size(), hive, &leftOut);
    outcome.leftOut = leftOut.count;
    EXPECT_EQ(leftOut.told.size(), std::min<uint64_t>(leftOut.count, kMostTold));
    if (!leftOut.told.empty()) outcome.told = leftOut.told.front();
    std::vector<const Key*> pending = {&hive.Root()};
    while (!pending.empty()) {
        const Key& key = *pending.back();
        pending.pop_back();
        outcome.items += 1 + key.values.Count();
        key.subkeys.ForEach([&](const Key& subkey) { pending.push_back(&subkey); });
    }
    return outcome;
}

constexpr size_t kSampleItems = 605;  // of SampleHive

// The content of the first cell that begins with `magic`, as a position in the file.
size_t FindCell(const Bytes& file, const char* magic, size_t skip = 0) {
    for (size_t at = 4096; at + 8 < file.size(); at += 8) {
        if (file[at + 3] < 0x80 || std::memcmp(&file[at + 4], magic, std::strlen(magic)) != 0) {
            continue;
        }
        if (skip-- == 0) return at + 4;
    }
    ADD_FAILURE() << "no cell " << magic;
    return 4096;
}

// Each line makes one number of one cell a lie.
struct Lie {
    const char* magic;
    uint32_t position;
    uint32_t number;
    uint32_t bytes;
    size_t lost;  // how many keys and values that costs; all when it is the root
    const char* told;
};

TEST(HostileHive, WhatLiesIsLeftOutAndToldAndTheRestIsRead) {
    const Bytes sound = SampleHive();
    ASSERT_EQ(Read(sound).leftOut, 0u);
    ASSERT_EQ(Read(sound).items, kSampleItems);
    constexpr size_t kAll = kSampleItems;
    constexpr const char* kList = "the list of the 600 subkeys of key \\";
    const Lie lies[] = {
        {"nk", fmt_::key::kNameBytes, 0xFFFF, 2, kAll, ""},
        {"nk", 0, 0, 2, kAll, ""},
        {"nk", fmt_::key::kSubkeyCount, 601, 4, 0,
         "what makes 601 subkeys of the 600 that are listed of key \\"},
        {"nk", fmt_::key::kSubkeyCount, 599, 4, 0,
         "what makes 599 subkeys of the 600 that are listed of key \\"},
        {"nk", fmt_::key::kSubkeyList, 0xFFFFFFF8, 4, kAll - 1, kList},
        {"nk", fmt_::key::kSubkeyList, 33, 4, kAll - 1, kList},
        {"nk", fmt_::key::kSecurity, 0x20, 4, 0, "the security of key \\"},
        {"ri", fmt_::list::kCount, 0xFFFF, 2, 0, ""},  // all of them are there
        {"ri", fmt_::list::kItems, 0x20, 4, 507, "list 0 of subkeys of key \\"},
        {"lf", fmt_::list::kItems, 0x20, 4, 1, "subkey 0 of a list of key \\"},
        {"sk", fmt_::security::kBytes, 0xFFFFFFFF, 4, 0, "the security of key \\"},
        {"vk", fmt_::value::kNameBytes, 0xFFFF, 2, 1, "value 0 of key \\k7"},
        {"vk", fmt_::value::kDataBytes, 0x80000005, 4, 1, "value 0 of key \\k7"},
        {"vk", 0, 0, 2, 1, "value 0 of key \\k7"},
        {"db", fmt_::big::kCount, 2, 2, 1, "value 2 of key \\k7"},
        {"db", fmt_::big::kList, 0xFFFFFFFF, 4, 1, "value 2 of key \\k7"},
    };
    for (const Lie& lie : lies) {
        Bytes file = sound;
        std::memcpy(&file[FindCell(file, lie.magic) + lie.position], &lie.number, lie.bytes);
        const Outcome outcome = Read(file);
        const bool hasRoot = lie.lost != kAll;
        EXPECT_EQ(outcome.error, hasRoot ? 0u : kErrorNotRegistryFile)
            << lie.magic << " at " << lie.position;
        if (!hasRoot) continue;
        EXPECT_EQ(outcome.told, lie.told);
        EXPECT_EQ(kSampleItems - outcome.items, lie.lost) << lie.magic << " at " << lie.position;
    }
}

TEST(HostileHive, ChecksTheBaseBlockAndTheBins) {
    const Bytes sound = SampleHive();
    const auto with = [&](size_t at, uint32_t number) {
        Bytes file = sound;
        fmt_::Store(&file[at], number);
        Seal(file);
        return Read(file).error;
    };
    EXPECT_EQ(with(fmt_::base::kMinor, 6), 0u);
    EXPECT_EQ(with(fmt_::base::kMinor, 7), kErrorNotRegistryFile);
    EXPECT_EQ(with(fmt_::base::kMajor, 2), kErrorNotRegistryFile);
    EXPECT_EQ(with(fmt_::base::kType, 1), kErrorNotRegistryFile);
    EXPECT_EQ(with(fmt_::base::kRootCell, 0xFFFFFFF8), kErrorNotRegistryFile);
    EXPECT_EQ(with(fmt_::base::kBinsLength, 0xFFFFF000), kErrorNotRegistryFile);
    EXPECT_EQ(with(fmt_::base::kBinsLength, 0), kErrorNotRegistryFile);
    // The first bin has the root.
    EXPECT_EQ(with(4096 + fmt_::bin::kSize, 0), kErrorNotRegistryFile);
    EXPECT_EQ(with(4096 + fmt_::bin::kSize, 0xFFFFF000), kErrorNotRegistryFile);
    EXPECT_EQ(with(4096 + fmt_::bin::kOffset, 4096), kErrorNotRegistryFile);
    Bytes broken = sound;
    broken[fmt_::base::kChecksum] ^= 1;
    EXPECT_EQ(Read(broken).error, kErrorNotRegistryFile);
    EXPECT_EQ(Read(Bytes(sound.begin(), sound.begin() + 4096)).error, kErrorNotRegistryFile);
    EXPECT_EQ(Read(Bytes(sound.begin(), sound.end() - 1)).error, kErrorNotRegistryFile);
    // The last bin has some keys and no more.
    Bytes lastBin = sound;
    size_t last = 4096;
    for (size_t at = 4096; at < sound.size(); at += 4096) {
        if (std::memcmp(&sound[at], fmt_::bin::kMagic, 4) == 0) last = at;
    }
    lastBin[last] ^= 1;
    const Outcome outcome = Read(lastBin);
    EXPECT_EQ(outcome.error, 0u);
    EXPECT_GT(outcome.leftOut, 1u);
    EXPECT_GT(outcome.items, kSampleItems / 4);
}

// A key that is reached twice would make a tree of any size out of a small file.
TEST(HostileHive, NoCellIsReadTwiceWhoeverRefersToIt) {
    const Bytes sound = SampleHive();
    const size_t list = FindCell(sound, "lf") + fmt_::list::kItems;
    const size_t second = FindCell(sound, "lf", 1) + fmt_::list::kItems;
    const auto lost = [](const Bytes& file) {
        const Outcome outcome = Read(file);
        EXPECT_EQ(outcome.error, 0u);
        EXPECT_NE(outcome.leftOut, 0u);
        return kSampleItems - outcome.items;
    };
    Bytes twice = sound;
    std::memcpy(&twice[list + 8], &twice[list], 4);
    EXPECT_EQ(lost(twice), 1u);

    Bytes acrossLists = sound;
    std::memcpy(&acrossLists[second], &acrossLists[list], 4);
    EXPECT_EQ(lost(acrossLists), 1u);

    Bytes loop = sound;
    fmt_::Store(&loop[list], fmt_::Load<uint32_t>(&sound[fmt_::base::kRootCell]));
    EXPECT_EQ(lost(loop), 1u);

    // A list of lists among the lists of a list: the recursion that is not taken.
    Bytes nested = sound;
    const auto top = static_cast<uint32_t>(FindCell(nested, "ri") - 4 - 4096);
    fmt_::Store(&nested[FindCell(nested, "ri") + fmt_::list::kItems], top);
    EXPECT_EQ(lost(nested), 507u);

    Bytes sharedData = sound;
    const size_t value = FindCell(sharedData, "vk", 1);
    const size_t big = FindCell(sharedData, "vk", 2);
    std::memcpy(&sharedData[value + fmt_::value::kData], &sharedData[big + fmt_::value::kData], 4);
    EXPECT_GE(lost(sharedData), 1u);
}

// Names that lead to another key or value, or to none.
TEST(HostileHive, NoTwoNamesLeadToOnePlace) {
    const Bytes sound = SampleHive();
    const auto told = [&](const char* magic, size_t skip, size_t position, const char* name) {
        Bytes file = sound;
        std::memcpy(&file[FindCell(file, magic, skip) + position], name, std::strlen(name));
        const Outcome outcome = Read(file);
        EXPECT_EQ(kSampleItems - outcome.items, 1u) << name;
        return outcome.told;
    };
    // The keys in their order: the root, k0, k1, k10.
    EXPECT_EQ(told("nk", 2, fmt_::key::kName, "K0"), "subkey 1 of a list of key \\");
    EXPECT_EQ(told("nk", 2, fmt_::key::kName, "k\\"), "subkey 1 of a list of key \\");
    Bytes file = sound;
    const size_t value = FindCell(file, "vk");
    fmt_::Store(&file[value + fmt_::value::kNameBytes], uint16_t{1});
    fmt_::Store(&file[FindCell(file, "vk", 2) + fmt_::value::kNameBytes], uint16_t{1});
    file[FindCell(file, "vk", 2) + fmt_::value::kName] = 'I';
    EXPECT_EQ(Read(file).told, "value 2 of key \\k7");
}

TEST(HostileHive, SurvivesCutsAndRandomChanges) {
    const Bytes sound = SampleHive();
    for (size_t size = 0; size < sound.size(); size += 509) {
        const auto end = sound.begin() + static_cast<ptrdiff_t>(size);
        EXPECT_NE(Read(Bytes(sound.begin(), end)).error, 0u);
    }
    std::mt19937 random(12345);
    size_t refused = 0;
    size_t damaged = 0;
    for (int round = 0; round < 1500; ++round) {
        Bytes file = sound;
        for (int change = 0; change < 4; ++change) {
            // The first bins hold the lists and keys that lead to everything else.
            const size_t at = 4096 + random() % (round % 2 == 0 ? 8192 : file.size() - 4096);
            file[at] = static_cast<uint8_t>(random());
        }
        const Outcome outcome = Read(file);
        EXPECT_LE(outcome.items, kSampleItems + 4);
        if (outcome.error != 0) ++refused;
        if (outcome.error == 0 && outcome.leftOut != 0) ++damaged;
    }
    EXPECT_LT(refused, 50u);
    EXPECT_GT(damaged, 250u);
}

}  // namespace
