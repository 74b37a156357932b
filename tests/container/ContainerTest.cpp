// SPDX-License-Identifier: MIT
// Containers made and opened: the bytes of a fresh one, what is refused, what may lie around one.
#include <gtest/gtest.h>

#include "tests/container/EngineStore.h"
#include "tests/container/Shapes.h"
#include "tests/support/FileWrapper.h"
#include "tests/support/FixedClock.h"

namespace support::container {
namespace {

using storage::kOk;

TEST(Container, IsTheFormatsToTheByteWhenFresh) {
    const FixedClock clock({2023, 3, 15, 6, 0, 0, 0});  // day 45000.25
    for (uint32_t pageSize = 256; pageSize <= 65536; pageSize *= 2) {
        const Bytes expected = Builder({pageSize}, Tree("")).Finish();
        EngineStore store(pageSize);
        EXPECT_EQ(store.FileBytes(), expected) << "while open";
        EXPECT_EQ(store.Close(), kOk);
        EXPECT_EQ(store.FileBytes(), expected) << "after close";
        EXPECT_EQ(expected.size(), 3u * pageSize);
    }
}

TEST(Container, IsMadeOrRefused) {
    const TempDir dir;
    EngineStore store;
    for (const uint32_t size : {0u, 1u, 128u, 255u, 257u, 3000u, 131072u, 0x80000000u}) {
        EXPECT_EQ(store.Create(dir / "a", size), storage::kBadPageSize) << size;
        EXPECT_EQ(store.Container(), nullptr);
        EXPECT_FALSE(std::filesystem::exists(dir / "a"));
    }
    const std::u16string longText = std::u16string(61, u'b') + u"cdef";
    ASSERT_EQ(store.Create(dir / "a", 512, false, longText), kOk);
    ASSERT_EQ(store.Close(), kOk);
    const Bytes file = ReadBytes(dir / "a");
    EXPECT_EQ(Bytes(file.begin() + 512 + 18, file.begin() + 512 + 142),
              UnitBytes(longText.substr(0, 62)));
    EXPECT_EQ(file[512 + 142], 0);
    WriteBytes(dir / "taken", {1, 2, 3});
    EXPECT_EQ(store.Create(dir / "taken"), 80);
    EXPECT_EQ(ReadBytes(dir / "taken"), Bytes({1, 2, 3}));
    EXPECT_EQ(store.Create(dir / "taken", 512, true), kOk);
    EXPECT_EQ(store.Close(), kOk);
    EXPECT_EQ(ReadBytes(dir / "taken").size(), 1536u);
    EXPECT_EQ(store.Create(dir.Path() / "no" / "such"), 3);
    EXPECT_EQ(
        storage::StorageCreate(dir.File("b").c_str(), 0, 512, nullptr, nullptr, '\\', nullptr, 0),
        storage::kInvalid);
    EXPECT_FALSE(std::filesystem::exists(dir / "b"));
    EXPECT_EQ(store.Open(dir / "missing"), 2);
    EXPECT_EQ(store.Open(dir.Path() / "no" / "such"), 3);
    EXPECT_EQ(store.Open(dir.Path()), 5);
    EXPECT_EQ(storage::StorageOpen(dir.File("x").c_str(), nullptr, '\\', nullptr, 0),
              storage::kInvalid);
}

// Bytes that are no container, by name.
std::vector<std::pair<const char*, Bytes>> NoContainers() {
    const Bytes sound = Builder({}, Tree("")).Finish();
    const auto with = [&](size_t at, uint16_t value) {
        Bytes bytes = sound;
        Put16(bytes.data(), at, value);
        return bytes;
    };
    const auto behind = [&](Bytes prefix, size_t broken = SIZE_MAX) {
        if (broken != SIZE_MAX) prefix[broken] = 0;
        prefix.insert(prefix.end(), sound.begin(), sound.end());
        return prefix;
    };
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
        {"no boot signature", behind(PartitionTable(1, 512), 511)},
        {"a partition at 0", behind(PartitionTable(0, 512))},
        {"a partition behind the end", behind(PartitionTable(0xFFFFFFFF, 512))},
        {"a volume without signature", behind(VolumeSector(512, 1, 512), 510)},
        {"a volume that fills the file", behind(VolumeSector(512, 4, 512))},
        {"a partition that leads to zeros", behind(PartitionTable(1, 1024))},
    };
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

TEST(Container, WhatIsNoneIsRefusedAndNotChanged) {
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
    WriteBytes(dir / "a", Builder({}, Tree("")).Finish());
    const HugeFiles huge;
    EngineStore store;
    EXPECT_EQ(store.Open(dir / "a"), storage::kNotContainer);
}

TEST(Container, IsMarkedWhenItsRootIsBroken) {
    const TempDir dir;
    for (const uint32_t size : {0u, 512u, 4000u}) {
        Builder builder({}, Tree("a '"));
        Put16(builder.Page(2), 38, size);
        WriteBytes(dir / "a", builder.Finish());
        EngineStore store;
        EXPECT_EQ(store.Open(dir / "a"), storage::kCorrupt) << size;
        EXPECT_EQ(ReadBytes(dir / "a")[512 + 244] & 1, 1) << size;
    }
}

// Behind partition tables and volumes, in both orders of bytes, with a part of a page behind it: a
// reading changes nothing, and a change only what it is about.
TEST(Container, IsReadAndChangedWhereverItLies) {
    Bytes both = PartitionTable(2, 1024);  // a partition that begins with a volume
    const Bytes volume = VolumeSector(512, 2, 1024);
    both.insert(both.end(), volume.begin(), volume.end());
    const std::pair<Bytes, uint32_t> places[] = {{{}, 256},
                                                 {PartitionTable(1, 512), 512},
                                                 {PartitionTable(7, 7 * 512), 256},
                                                 {PartitionTable(16, 8192), 8192},
                                                 {VolumeSector(512, 3, 3 * 512), 512},
                                                 {VolumeSector(1024, 4, 4096), 4096},
                                                 {VolumeSector(512, 9, 9 * 512, true), 512},
                                                 {both, 512}};
    for (const auto& [prefix, pageSize] : places) {
        for (const bool foreign : {false, true}) {
            SCOPED_TRACE(std::to_string(prefix.size()) + " " + std::to_string(pageSize));
            const Form form{pageSize, foreign, prefix, Bytes(pageSize - 1, 0xEE)};
            Item root = RichTree(pageSize);
            // Inline entries move to pages when they are first loaded, and a read past what is
            // stored, inside the size, stores it.
            std::erase_if(root.children, [](const Item& item) {
                return item.inlineEntries || item.size.has_value();
            });
            const Bytes file = Builder(form, root).Finish();
            Content expected = ContentOf(root, false);
            EngineStore store(file);
            Failures failures;
            EXPECT_EQ(store.ReadAll(&failures), expected);
            EXPECT_EQ(failures, Failures());
            EXPECT_EQ(store.Close(), kOk);
            EXPECT_TRUE(store.FileBytes() == file);
            ASSERT_EQ(store.Reopen(), kOk);
            for (const char16_t* path : {u"\\long", u"\\fresh", u"\\coded long"}) {
                expected[path] = Runs(pageSize * 20);
                EXPECT_EQ(store.Put(path, *expected[path]), kOk);
            }
            EXPECT_EQ(store.Delete(u"\\coded"), kOk);
            expected.erase(u"\\coded");
            EXPECT_EQ(store.Close(), kOk);
            const Bytes after = store.FileBytes();
            const auto begin = after.begin() + static_cast<std::ptrdiff_t>(prefix.size());
            EXPECT_TRUE(std::equal(prefix.begin(), prefix.end(), after.begin()));
            const Reading reading = ReadContainer(Bytes(begin, after.end()));
            EXPECT_EQ(reading.wrong, "");
            EXPECT_EQ(ContentOf(reading.root, false), expected);
            EXPECT_EQ(reading.foreign, foreign);
        }
    }
}

}  // namespace
}  // namespace support::container
