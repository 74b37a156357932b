// SPDX-License-Identifier: MIT
// Hives that lie: every one of them is refused or read as far as it can be, and never more.
#include <random>

#include "offreg/HiveFormat.h"
#include "offreg/HiveReader.h"
#include "offreg/HiveWriter.h"
#include "tests/support/ScriptText.h"

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

// Where a cell of lies.txt lies.
size_t PlaceOf(const std::string& cell, const Bytes& file) {
    if (cell == "regf" || cell == "hbin") return cell == "regf" ? 0 : 4096;
    size_t skip = cell.size() > 2 ? std::stoul(cell.substr(3)) : 0;
    for (size_t at = 4096; at + 8 < file.size(); at += 8)
        if (file[at + 3] >= 0x80 && std::memcmp(&file[at + 4], cell.c_str(), 2) == 0 && skip-- == 0)
            return at + 4;
    ADD_FAILURE() << "no cell " << cell;
    return 4096;
}

Bytes LieOf(const std::string& word, const Bytes& file) {
    Bytes four(4);
    const size_t plus = word.find('+');
    if (plus != word.npos) {
        const size_t at = PlaceOf(word.substr(0, plus), file) + std::stoul(word.substr(plus + 1));
        std::copy_n(&file[at], 4, four.begin());
    } else if (word[0] == '@') {
        fmt_::Store(four.data(), static_cast<uint32_t>(PlaceOf(word.substr(1), file) - 4 - 4096));
    }
    return plus != word.npos || word[0] == '@' ? four : support::DataOf(word);
}

// Plays a line of lies.txt.
void Tell(const std::string& line, const Bytes& sound) {
    std::vector<std::string> words;
    for (const platform::WString& word : support::WordsOf(line))
        words.push_back(platform::ToUtf8(word));
    Bytes file = sound;
    size_t i = 0;
    for (; words.at(i) != "->"; i += 3) {
        const Bytes lie = LieOf(words.at(i + 2), sound);
        std::copy(lie.begin(), lie.end(),
                  &file[PlaceOf(words[i], sound) + std::stoul(words[i + 1])]);
    }
    fmt_::Store(&file[fmt_::base::kChecksum], fmt_::Checksum(file.data()));
    const Outcome outcome = Read(file);
    const bool all = words.at(i + 1) == "all";
    EXPECT_EQ(outcome.error, all ? kErrorNotRegistryFile : 0u);
    if (all) return;
    EXPECT_EQ(kSampleItems - outcome.items, std::stoul(words[i + 1]));
    EXPECT_EQ(outcome.told.empty(), words.size() == i + 2);
    EXPECT_TRUE(outcome.told.starts_with(words.size() == i + 2 ? "" : words[i + 2]))
        << outcome.told;
}

TEST(HostileHive, WhatLiesIsLeftOutAndToldAndTheRestIsRead) {
    const Bytes sound = SampleHive();
    ASSERT_EQ(Read(sound).leftOut, 0u);
    ASSERT_EQ(Read(sound).items, kSampleItems);
    for (const support::Section& section : support::SectionsIn("offline/lies.txt"))
        for (const auto& [number, line] : section.lines) {
            SCOPED_TRACE("line " + std::to_string(number) + ": " + line);
            Tell(line, sound);
        }
    Bytes broken = sound, lastBin = sound;
    broken[fmt_::base::kChecksum] ^= 1;
    for (const Bytes& file : {broken, Bytes(sound.begin(), sound.begin() + 4096),
                              Bytes(sound.begin(), sound.end() - 1)})
        EXPECT_EQ(Read(file).error, kErrorNotRegistryFile);
    // The last bin has some keys and no more.
    size_t last = sound.size() - 4096;
    while (std::memcmp(&sound[last], fmt_::bin::kMagic, 4) != 0) last -= 4096;
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
