// SPDX-License-Identifier: MIT
// Streams that are coded by others, and what is said of those that lie.
#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <sstream>

#include "storage/namespace/Stream.h"
#include "tests/container/Edit.h"
#include "tests/container/EngineStore.h"
#include "tests/container/Shapes.h"

namespace {

using namespace support::container;
using storage::kBadBlock;
using storage::kCorrupt;
using storage::kOk;
using support::Bytes;

const std::u16string kFile = u"\\v";

TEST(Stream, OfMethodThreeNeedsItsFunctions) {
    Builder builder({}, Tree("v FF*100 method=3"));
    // The record of the stream: a coded block of 32 bytes that stands for 100.
    uint8_t* record = builder.Record(kFile, DataRec);
    Put32(record, 4, 32);
    Put32(record, 12, 100);
    EngineStore store(builder.Finish());
    Bytes bytes;
    EXPECT_EQ(store.Get(kFile, &bytes), kBadBlock);
    storage::StorageExpandFunction = [](const uint8_t* source, uint32_t length, uint8_t* to,
                                        uint32_t* room) {
        if (*room < 100 || length < 32) return 1;
        std::memset(to, source[0], 100);
        *room = 100;
        return 0;
    };
    EXPECT_EQ(store.Get(kFile, &bytes), kOk);
    EXPECT_EQ(bytes, Bytes(100, 0xFF));
    storage::StorageExpandFunction = nullptr;
}

// What is said of a file that lies, and what may be done with it afterwards: the others stay whole.
TEST(Stream, TellsLies) {
    const std::vector<support::Section> sections = SectionsIn("storage/lies.txt");
    const Builder sound({256}, Tree(sections[0], 256));
    ASSERT_GE(sound.At(u"\\long").indexPages.size(), 2u);
    for (const support::Section& section : std::span(sections).subspan(1))
        for (const auto& [number, line] : section.lines) {
            SCOPED_TRACE(line);
            std::istringstream in(line);
            std::string name, edits;
            storage::Status status = kOk;
            std::getline(in >> name >> status, edits);
            const std::u16string path = u"\\" + ToUnits(name);
            Builder builder = sound;
            Edit(&builder, edits);
            EngineStore store(builder.Finish());
            const size_t size = store.FileBytes().size();
            Bytes bytes;
            EXPECT_EQ(store.Get(path, &bytes, 1 << 16), status);
            {
                EngineFile file(store, path);
                if (file.Opened() == kOk) {
                    file.SeekFar(bytes.size() / 2);
                    file.Write(Bytes(3000, 5));
                    file.SeekFar(1u << 30);
                    file.Read(10, &bytes);
                }
            }
            store.Put(path, Bytes(100, 6));
            const storage::Status deleted = store.Delete(path);
            uint8_t corrupted = 0;
            EXPECT_EQ(storage::StorageIsCorrupted(store, &corrupted), kOk);
            if (path == u"\\small") {
                EXPECT_EQ(deleted, kCorrupt);
                EXPECT_EQ(corrupted, 1) << "by one who has the lock";
            }
            EXPECT_EQ(store.Body(u"\\other"), Pattern(1000));
            EXPECT_EQ(store.Put(u"\\new", Pattern(9)), kOk);
            store.Close();
            EXPECT_LT(store.FileBytes().size(), size * 4);
        }
}

}  // namespace
