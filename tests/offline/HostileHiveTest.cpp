// SPDX-License-Identifier: MIT
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
    using namespace fmt_;
    const std::pair<size_t, uint32_t> lies[] = {
        {base::kMinor, 7},
        {base::kMajor, 2},
        {base::kType, 1},
        {base::kRootCell, 0xFFFFFFF8},
        {base::kBinsLength, 0xFFFFF000},
        {base::kBinsLength, 0},
        // The first bin has the root.
        {4096 + bin::kSize, 0},
        {4096 + bin::kSize, 0xFFFFF000},
        {4096 + bin::kOffset, 4096},
    };
    const auto with = [&](size_t at, uint32_t number) {
        Bytes file = sound;
        Store(&file[at], number);
        Store(file.data() + base::kChecksum, Checksum(file.data()));
        return Read(file).error;
    };
    for (const auto& [at, number] : lies) EXPECT_EQ(with(at, number), kErrorNotRegistryFile) << at;
    EXPECT_EQ(with(base::kMinor, 6), 0u);
    Bytes broken = sound;
    broken[base::kChecksum] ^= 1;
    for (const Bytes& file : {broken, Bytes(sound.begin(), sound.begin() + 4096),
                              Bytes(sound.begin(), sound.end() - 1)})
        EXPECT_EQ(Read(file).error, kErrorNotRegistryFile);
    // The last bin has some keys and no more.
    Bytes lastBin = sound;
    size_t last = sound.size() - 4096;
    while (std::memcmp(&sound[last], bin::kMagic, 4) != 0) last -= 4096;
    lastBin[last] ^= 1;
    const Outcome outcome = Read(lastBin);
    EXPECT_EQ(outcome.error, 0u);
    EXPECT_GT(outcome.leftOut, 1u);
    EXPECT_GT(outcome.items, kSampleItems / 4);
}

// A key that is reached twice would make a tree of any size out of a small file; and no two names
// may lead to one place.
TEST(HostileHive, NoCellIsReadTwiceAndNoTwoNamesLeadToOnePlace) {
    const Bytes sound = SampleHive();
    const auto cell = [&](const char* magic, size_t skip, size_t position) {
        return FindCell(sound, magic, skip) + position;
    };
    const auto word = [&](size_t at) { return Bytes(&sound[at], &sound[at] + 4); };
    const size_t list = cell("lf", 0, fmt_::list::kItems);
    const size_t lists = cell("ri", 0, fmt_::list::kItems);
    Bytes top(4);
    fmt_::Store(top.data(), static_cast<uint32_t>(FindCell(sound, "ri") - 4 - 4096));
    const struct {
        size_t at;
        Bytes bytes;
        size_t lost;
        const char* told = "";
    } rows[] = {
        {list + 8, word(list), 1},                           // twice in a list
        {cell("lf", 1, fmt_::list::kItems), word(list), 1},  // in two lists
        {list, word(fmt_::base::kRootCell), 1},              // a loop
        {lists, top, 507},                                   // the recursion that is not taken
        {cell("vk", 1, fmt_::value::kData), word(cell("vk", 2, fmt_::value::kData)), 2},
        // The keys in their order: the root, k0, k1, k10.
        {cell("nk", 2, fmt_::key::kName), {'K', '0'}, 1, "subkey 1 of a list of key \\"},
        {cell("nk", 2, fmt_::key::kName), {'k', '\\'}, 1, "subkey 1 of a list of key \\"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.at);
        Bytes file = sound;
        std::copy(row.bytes.begin(), row.bytes.end(), &file[row.at]);
        const Outcome outcome = Read(file);
        EXPECT_EQ(outcome.error, 0u);
        EXPECT_NE(outcome.leftOut, 0u);
        EXPECT_EQ(kSampleItems - outcome.items, row.lost);
        EXPECT_TRUE(outcome.told.starts_with(row.told)) << outcome.told;
    }
    Bytes file = sound;
    for (const size_t skip : {0, 2})
        fmt_::Store(&file[cell("vk", skip, fmt_::value::kNameBytes)], uint16_t{1});
    file[cell("vk", 2, fmt_::value::kName)] = 'I';
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
