// Making containers, and what is refused when making and opening them.
#include <gtest/gtest.h>

#include "tests/container/EngineStore.h"
#include "tests/container/Shapes.h"
#include "tests/support/FileWrapper.h"
#include "tests/support/FixedClock.h"

namespace support::container {
namespace {

using storage::Status;

class PageSizes : public testing::TestWithParam<uint32_t> {};

TEST_P(PageSizes, FreshContainerIsTheFormatsToTheByte) {
    const TempDir dir;
    const FixedClock clock({2023, 3, 15, 6, 0, 0, 0});  // day 45000.25
    EngineStore store;
    ASSERT_EQ(store.Create(dir / "fresh.fbr", GetParam()), storage::kOk);
    Form form;
    form.pageSize = GetParam();
    const Bytes expected = Builder(form, Directory(u"")).Finish();
    EXPECT_EQ(ReadBytes(dir / "fresh.fbr"), expected) << "while open";
    EXPECT_EQ(store.Close(), storage::kOk);
    EXPECT_EQ(ReadBytes(dir / "fresh.fbr"), expected) << "after close";
    EXPECT_EQ(expected.size(), 3u * GetParam());
}

INSTANTIATE_TEST_SUITE_P(All, PageSizes,
                         testing::Values(256, 512, 1024, 2048, 4096, 8192, 16384, 32768, 65536));

TEST(Create, FillsTheBanner) {
    const TempDir dir;
    EngineStore store;
    const std::u16string longText = std::u16string(61, u'b') + u"cdef";
    ASSERT_EQ(store.Create(dir / "a", 512, false, longText), storage::kOk);
    ASSERT_EQ(store.Close(), storage::kOk);
    const Bytes file = ReadBytes(dir / "a");
    EXPECT_EQ(Bytes(file.begin() + 512 + 18, file.begin() + 512 + 142),
              UnitBytes(longText.substr(0, 62)));
    EXPECT_EQ(file[512 + 142], 0);
}

TEST(Create, RefusesPageSizesAndLeavesNoFile) {
    const TempDir dir;
    for (uint32_t size : {0u, 1u, 128u, 255u, 257u, 3000u, 131072u, 0x80000000u}) {
        EngineStore store;
        EXPECT_EQ(store.Create(dir / "a", size), storage::kBadPageSize) << size;
        EXPECT_EQ(store.Container(), nullptr);
        EXPECT_FALSE(std::filesystem::exists(dir / "a"));
    }
}

TEST(Create, AnswersWhatThePlatformAnswers) {
    const TempDir dir;
    EngineStore store;
    WriteBytes(dir / "taken", {1, 2, 3});
    EXPECT_EQ(store.Create(dir / "taken"), 80);
    EXPECT_EQ(ReadBytes(dir / "taken"), Bytes({1, 2, 3}));
    EXPECT_EQ(store.Create(dir / "taken", 512, true), storage::kOk);
    EXPECT_EQ(store.Close(), storage::kOk);
    EXPECT_EQ(ReadBytes(dir / "taken").size(), 1536u);
    EXPECT_EQ(store.Create(dir.Path() / "no" / "such"), 3);
    EXPECT_EQ(
        storage::StorageCreate(dir.File("b").c_str(), 0, 512, nullptr, nullptr, '\\', nullptr, 0),
        storage::kInvalid);
    EXPECT_FALSE(std::filesystem::exists(dir / "b"));
}

TEST(Open, AnswersWhatThePlatformAnswers) {
    const TempDir dir;
    EngineStore store;
    EXPECT_EQ(store.Open(dir / "missing"), 2);
    EXPECT_EQ(store.Open(dir.Path() / "no" / "such"), 3);
    EXPECT_EQ(store.Open(dir.Path()), 5);
    EXPECT_EQ(storage::StorageOpen(dir.File("x").c_str(), nullptr, '\\', nullptr, 0),
              storage::kInvalid);
}

// Bytes that are no container, by name.
std::vector<std::pair<const char*, Bytes>> NoContainers() {
    Form form;
    const Bytes sound = Builder(form, Directory(u"")).Finish();
    const auto with = [&](size_t at, uint16_t value) {
        Bytes bytes = sound;
        Put16(bytes.data(), at, value);
        return bytes;
    };
    const auto behind = [&](Bytes prefix) {
        prefix.insert(prefix.end(), sound.begin(), sound.end());
        return prefix;
    };
    Bytes noSignature = PartitionTable(1, 512);
    noSignature[511] = 0;
    Bytes brokenVolume = VolumeSector(512, 1, 512);
    brokenVolume[510] = 0;
    Bytes endless = PartitionTable(0xFFFFFFFF, 512);
    return {
        {"empty", {}},
        {"one byte", {9}},
        {"less than a block", Bytes(sound.begin(), sound.begin() + 300)},
        {"zeros", Bytes(4096)},
        {"E below 8", with(0, 7)},
        {"E above 16", with(0, 17)},
        {"E far too large", with(0, 0xFFFF)},
        {"a wrong signature", with(2, 0x574F)},
        {"only the map page", Bytes(sound.begin(), sound.begin() + 512)},
        {"no boot signature", behind(noSignature)},
        {"a partition at 0", behind(PartitionTable(0, 512))},
        {"a partition behind the end", behind(endless)},
        {"a volume without signature", behind(brokenVolume)},
        {"a volume that fills the file", behind(VolumeSector(512, 4, 512))},
        {"a partition that leads to zeros", behind(PartitionTable(1, 1024))},
    };
}

TEST(Open, RefusesWhatIsNoContainerAndChangesNothing) {
    const TempDir dir;
    for (const auto& [what, bytes] : NoContainers()) {
        SCOPED_TRACE(what);
        WriteBytes(dir / "a.fbr", bytes);
        WriteBytes(dir / "a.log", {1, 2, 3});
        EngineStore store;
        EXPECT_EQ(store.Open(dir / "a.fbr"), storage::kNotContainer);
        EXPECT_EQ(store.Container(), nullptr);
        EXPECT_EQ(ReadBytes(dir / "a.fbr"), bytes);
        EXPECT_EQ(ReadBytes(dir / "a.log"), Bytes({1, 2, 3}));
    }
}

// Says that every file is larger than a page count of 32 bits can tell.
class HugeFiles final : public FileWrapper {
  public:
    class File final : public ForwardingFile {
      public:
        using ForwardingFile::ForwardingFile;
        platform::Error Size(uint64_t* length) override {
            *length = (uint64_t{1} << 32) * 512 + 4096;
            return 0;
        }
    };
    platform::PageFile* Wrap(platform::PageFile* opened, const platform::WChar*) override {
        return new File(opened);
    }
};

TEST(Open, RefusesMorePagesThan32BitsCount) {
    const TempDir dir;
    WriteBytes(dir / "a", Builder({}, Directory(u"")).Finish());
    const HugeFiles huge;
    EngineStore store;
    EXPECT_EQ(store.Open(dir / "a"), storage::kNotContainer);
}

TEST(Open, MarksABrokenRootAsCorrupted) {
    const TempDir dir;
    for (uint32_t size : {0u, 512u, 4000u}) {
        Builder builder({}, Directory(u"", {File(u"a")}));
        Put16(builder.Page(2), 38, size);
        WriteBytes(dir / "a", builder.Finish());
        EngineStore store;
        EXPECT_EQ(store.Open(dir / "a"), storage::kCorrupt) << size;
        EXPECT_EQ(ReadBytes(dir / "a")[512 + 244] & 1, 1) << size;
    }
}

TEST(Close, ClosesTheHandlesLeftOpen) {
    const TempDir dir;
    EngineStore store;
    ASSERT_EQ(store.Create(dir / "a"), storage::kOk);
    ASSERT_EQ(store.Put(u"\\kept", Pattern(10)), storage::kOk);
    storage::FileHandle* left = nullptr;
    ASSERT_EQ(storage::StorageOpenFile(store.Container(), WTEXT("\\kept"), 1, 1, 0, 0, WTEXT(""), 0,
                                       &left),
              storage::kOk);
    uint32_t done = 0;
    const Bytes body = Pattern(700, 5);
    ASSERT_EQ(storage::StorageWriteFile(left, body.data(), 700, &done), storage::kOk);
    EXPECT_EQ(store.Close(), storage::kOk);
    const Reading reading = ReadContainer(ReadBytes(dir / "a"));
    EXPECT_TRUE(reading.Sound()) << reading.Report();
    ASSERT_NE(reading.At(u"\\kept"), nullptr);
    EXPECT_EQ(reading.At(u"\\kept")->body, body);
}

TEST(Slots, AnswerANullHandle) {
    EXPECT_EQ(storage::StorageClose(nullptr), storage::kInvalid);
    EXPECT_EQ(storage::StorageCloseFile(nullptr), storage::kInvalid);
    EXPECT_EQ(storage::StorageIsCorrupted(nullptr, nullptr), storage::kInvalid);
    EXPECT_EQ(storage::StorageDeleteFile(nullptr, WTEXT("\\a")), storage::kInvalid);
    EXPECT_EQ(storage::StorageCompact(nullptr, nullptr), storage::kInvalid);
}

}  // namespace
}  // namespace support::container
