// Hives that lie: every one of them is refused or read, and never more.
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

uint32_t Read(const Bytes& file) {
    // A copy of exactly this size, so that the address sanitizer sees the byte behind the end.
    const std::vector<uint8_t> exact(file.begin(), file.end());
    Hive hive;
    return ReadHive(exact.data(), exact.size(), hive);
}

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
};

TEST(HostileHive, RefusesEveryLie) {
    const Bytes sound = SampleHive();
    ASSERT_EQ(Read(sound), 0u);
    const Lie lies[] = {
        {"nk", fmt_::key::kSubkeyCount, 601, 4},
        {"nk", fmt_::key::kSubkeyCount, 599, 4},
        {"nk", fmt_::key::kSubkeyCount, 0xFFFFFFFF, 4},
        {"nk", fmt_::key::kSubkeyList, 0xFFFFFFF8, 4},
        {"nk", fmt_::key::kSubkeyList, 33, 4},
        {"nk", fmt_::key::kNameBytes, 0xFFFF, 2},
        {"nk", fmt_::key::kSecurity, 0x20, 4},
        {"nk", 0, 0, 2},
        {"ri", fmt_::list::kCount, 0xFFFF, 2},
        {"ri", fmt_::list::kItems, 0x20, 4},
        {"lf", fmt_::list::kCount, 0xFFFF, 2},
        {"lf", fmt_::list::kItems, 0x20, 4},
        {"sk", fmt_::security::kBytes, 0xFFFFFFFF, 4},
        {"vk", fmt_::value::kNameBytes, 0xFFFF, 2},
        {"vk", fmt_::value::kDataBytes, 0x80000005, 4},
        {"db", fmt_::big::kCount, 2, 2},
        {"db", fmt_::big::kList, 0xFFFFFFFF, 4},
    };
    for (const Lie& lie : lies) {
        Bytes file = sound;
        std::memcpy(&file[FindCell(file, lie.magic) + lie.position], &lie.number, lie.bytes);
        EXPECT_EQ(Read(file), kErrorNotRegistryFile) << lie.magic << " at " << lie.position;
    }
}

TEST(HostileHive, ChecksTheBaseBlockAndTheBins) {
    const Bytes sound = SampleHive();
    const auto with = [&](size_t at, uint32_t number) {
        Bytes file = sound;
        fmt_::Store(&file[at], number);
        Seal(file);
        return Read(file);
    };
    EXPECT_EQ(with(fmt_::base::kMinor, 6), 0u);
    EXPECT_EQ(with(fmt_::base::kMinor, 7), kErrorNotRegistryFile);
    EXPECT_EQ(with(fmt_::base::kMajor, 2), kErrorNotRegistryFile);
    EXPECT_EQ(with(fmt_::base::kType, 1), kErrorNotRegistryFile);
    EXPECT_EQ(with(fmt_::base::kRootCell, 0xFFFFFFF8), kErrorNotRegistryFile);
    EXPECT_EQ(with(fmt_::base::kBinsLength, 0xFFFFF000), kErrorNotRegistryFile);
    EXPECT_EQ(with(fmt_::base::kBinsLength, 0), kErrorNotRegistryFile);
    EXPECT_EQ(with(4096 + fmt_::bin::kSize, 0), kErrorNotRegistryFile);
    EXPECT_EQ(with(4096 + fmt_::bin::kSize, 0xFFFFF000), kErrorNotRegistryFile);
    EXPECT_EQ(with(4096 + fmt_::bin::kOffset, 4096), kErrorNotRegistryFile);
    Bytes broken = sound;
    broken[fmt_::base::kChecksum] ^= 1;
    EXPECT_EQ(Read(broken), kErrorNotRegistryFile);
    // Sequence numbers that differ tell of a log, which is not asked for.
    EXPECT_EQ(with(fmt_::base::kSequence2, 77), 0u);
    EXPECT_EQ(Read(Bytes(sound.begin(), sound.begin() + 4096)), kErrorNotRegistryFile);
    EXPECT_EQ(Read(Bytes(sound.begin(), sound.end() - 1)), kErrorNotRegistryFile);
}

// A key that is reached twice would make a tree of any size out of a small file.
TEST(HostileHive, RefusesLoopsAndDoubleReferences) {
    const Bytes sound = SampleHive();
    const size_t list = FindCell(sound, "lf") + fmt_::list::kItems;
    const size_t second = FindCell(sound, "lf", 1) + fmt_::list::kItems;
    Bytes twice = sound;
    std::memcpy(&twice[list + 8], &twice[list], 4);
    EXPECT_EQ(Read(twice), kErrorNotRegistryFile);

    Bytes acrossLists = sound;
    std::memcpy(&acrossLists[second], &acrossLists[list], 4);
    EXPECT_EQ(Read(acrossLists), kErrorNotRegistryFile);

    Bytes loop = sound;
    const uint32_t root = fmt_::Load<uint32_t>(&sound[fmt_::base::kRootCell]);
    fmt_::Store(&loop[list], root);
    EXPECT_EQ(Read(loop), kErrorNotRegistryFile);

    // A list of lists among the lists of a list: the recursion that is not taken.
    Bytes nested = sound;
    const auto top = static_cast<uint32_t>(FindCell(nested, "ri") - 4 - 4096);
    fmt_::Store(&nested[FindCell(nested, "ri") + fmt_::list::kItems], top);
    EXPECT_EQ(Read(nested), kErrorNotRegistryFile);

    Bytes sharedData = sound;
    const size_t value = FindCell(sharedData, "vk", 1);
    const size_t big = FindCell(sharedData, "vk", 2);
    std::memcpy(&sharedData[value + fmt_::value::kData], &sharedData[big + fmt_::value::kData], 4);
    EXPECT_EQ(Read(sharedData), kErrorNotRegistryFile);
}

TEST(HostileHive, SurvivesCutsAndRandomChanges) {
    const Bytes sound = SampleHive();
    for (size_t size = 0; size < sound.size(); size += 509) {
        EXPECT_NE(Read(Bytes(sound.begin(), sound.begin() + static_cast<ptrdiff_t>(size))), 0u);
    }
    std::mt19937 random(12345);
    size_t refused = 0;
    for (int round = 0; round < 3000; ++round) {
        Bytes file = sound;
        for (int change = 0; change < 4; ++change) {
            // The first bins hold the lists and keys that lead to everything else.
            const size_t at = 4096 + random() % (round % 2 == 0 ? 8192 : file.size() - 4096);
            file[at] = static_cast<uint8_t>(random());
        }
        if (Read(file) != 0) ++refused;
    }
    EXPECT_GT(refused, 100u);
    EXPECT_LT(refused, 3000u);
}

}  // namespace
