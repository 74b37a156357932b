// SPDX-License-Identifier: MIT
// Hives that lie: every one of them is refused or read as far as it can be, and never more.
#include <random>

#include "offreg/HiveFormat.h"
#include "offreg/HiveReader.h"
#include "offreg/HiveWriter.h"
#include "tests/support/TempDir.h"

using namespace offreg;
using support::Bytes;
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
    key->values.Add(WTEXT("\x0416"))->data = Bytes(100, 1);
    key->values.Add(WTEXT("big"))->data = Bytes(40000, 1);
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

Bytes Word(uint32_t number) {
    Bytes bytes(4);
    fmt_::Store(bytes.data(), number);
    return bytes;
}
Bytes Half(uint16_t number) {
    Bytes bytes(2);
    fmt_::Store(bytes.data(), number);
    return bytes;
}

// Each line puts a lie into a cell; `lost` is how many keys and values that costs, all when it is
// the root.
TEST(HostileHive, WhatLiesIsLeftOutAndToldAndTheRestIsRead) {
    const Bytes sound = SampleHive();
    ASSERT_EQ(Read(sound).leftOut, 0u);
    ASSERT_EQ(Read(sound).items, kSampleItems);
    using namespace fmt_;
    constexpr size_t kAll = kSampleItems;
    constexpr const char* kList = "the list of the 600 subkeys of key \\";
    const auto inCell = [&](const char* magic, size_t skip, size_t position) {
        const auto at = sound.begin() + static_cast<ptrdiff_t>(FindCell(sound, magic, skip));
        return Bytes(at + static_cast<ptrdiff_t>(position),
                     at + static_cast<ptrdiff_t>(position) + 4);
    };
    const Bytes firstKey = inCell("lf", 0, list::kItems);
    const struct {
        const char* magic;
        size_t position;
        Bytes bytes;
        size_t lost;
        const char* told;  // its beginning
        size_t skip = 0;
    } lies[] = {
        {"nk", key::kNameBytes, Half(0xFFFF), kAll, ""},
        {"nk", 0, Half(0), kAll, ""},
        {"nk", key::kSubkeyCount, Word(601), 0,
         "what makes 601 subkeys of the 600 that are listed of key \\"},
        {"nk", key::kSubkeyCount, Word(599), 0,
         "what makes 599 subkeys of the 600 that are listed of key \\"},
        {"nk", key::kSubkeyList, Word(0xFFFFFFF8), kAll - 1, kList},
        {"nk", key::kSubkeyList, Word(33), kAll - 1, kList},
        {"nk", key::kSecurity, Word(0x20), 0, "the security of key \\"},
        {"ri", list::kCount, Half(0xFFFF), 0, ""},  // all of them are there
        {"ri", list::kItems, Word(0x20), 507, "list 0 of subkeys of key \\"},
        {"lf", list::kItems, Word(0x20), 1, "subkey 0 of a list of key \\"},
        {"sk", security::kBytes, Word(0xFFFFFFFF), 0, "the security of key \\"},
        {"vk", value::kNameBytes, Half(0xFFFF), 1, "value 0 of key \\k7"},
        {"vk", value::kDataBytes, Word(0x80000005), 1, "value 0 of key \\k7"},
        {"vk", 0, Half(0), 1, "value 0 of key \\k7"},
        {"db", big::kCount, Half(2), 1, "value 2 of key \\k7"},
        {"db", big::kList, Word(0xFFFFFFFF), 1, "value 2 of key \\k7"},
        // A key that is reached twice would make a tree of any size out of a small file: twice in a
        // list, in two lists, by a loop, by the recursion that is not taken.
        {"lf", list::kItems + 8, firstKey, 1, "subkey"},
        {"lf", list::kItems, firstKey, 1, "subkey", 1},
        {"lf", list::kItems, Word(Load<uint32_t>(&sound[base::kRootCell])), 1, "subkey"},
        {"ri", list::kItems, Word(static_cast<uint32_t>(FindCell(sound, "ri") - 4 - 4096)), 507,
         "list"},
        {"vk", value::kData, inCell("vk", 2, value::kData), 2, "value", 1},
        // No two names lead to one place. The keys in their order: the root, k0, k1, k10.
        {"nk", key::kName, {'K', '0'}, 1, "subkey 1 of a list of key \\", 2},
        {"nk", key::kName, {'k', '\\'}, 1, "subkey 1 of a list of key \\", 2},
    };
    for (const auto& lie : lies) {
        SCOPED_TRACE(testing::Message() << lie.magic << " at " << lie.position);
        Bytes file = sound;
        std::copy(lie.bytes.begin(), lie.bytes.end(),
                  &file[FindCell(file, lie.magic, lie.skip) + lie.position]);
        const Outcome outcome = Read(file);
        EXPECT_EQ(outcome.error, lie.lost == kAll ? kErrorNotRegistryFile : 0u);
        if (lie.lost == kAll) continue;
        EXPECT_TRUE(outcome.told.starts_with(lie.told)) << outcome.told;
        EXPECT_EQ(outcome.told.empty(), *lie.told == 0);
        EXPECT_EQ(kSampleItems - outcome.items, lie.lost);
    }
    Bytes file = sound;
    for (const size_t skip : {0, 2})
        Store(&file[FindCell(sound, "vk", skip) + value::kNameBytes], uint16_t{1});
    file[FindCell(sound, "vk", 2) + value::kName] = 'I';
    EXPECT_EQ(Read(file).told, "value 2 of key \\k7");
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
