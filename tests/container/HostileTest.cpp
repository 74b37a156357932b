// Damaged and hostile containers: whatever the bytes are, opening, reading all, writing and
// closing end with statuses, after work that the page count bounds. What a run finds wrong beyond
// that, the sanitizers tell. ZRFS_LONG_TESTS=n runs n times as many seeds.
#include <gtest/gtest.h>

#include <random>

#include "tests/container/EngineStore.h"
#include "tests/container/Shapes.h"
#include "tests/support/FileWrapper.h"

namespace support::container {
namespace {

using storage::Status;

// Counts page transfers over all files.
class CountingFiles final : public FileWrapper {
  public:
    class File final : public ForwardingFile {
      public:
        File(platform::PageFile* inner, uint64_t* calls) : ForwardingFile(inner), calls_(calls) {}
        platform::Error Read(uint64_t offset, void* buffer, uint32_t bytes,
                             uint32_t* done) override {
            ++*calls_;
            return Inner().Read(offset, buffer, bytes, done);
        }
        platform::Error Write(uint64_t offset, const void* const* buffers, uint32_t count,
                              uint32_t bytes, uint32_t* done) override {
            ++*calls_;
            return Inner().Write(offset, buffers, count, bytes, done);
        }

      private:
        uint64_t* calls_;
    };
    platform::PageFile* Wrap(platform::PageFile* opened, const platform::WChar*) override {
        return new File(opened, &calls_);
    }
    uint64_t Calls() const { return calls_; }

  private:
    uint64_t calls_ = 0;
};

constexpr size_t kReadLimit = 32768;  // of each file: sizes may lie

// All that can be done with a container; the statuses do not matter.
void Exercise(const std::filesystem::path& path) {
    EngineStore store;
    if (store.Open(path) != storage::kOk) return;
    const Content content = store.ReadAll(nullptr, kReadLimit, 8);
    store.Put(u"\\new file", Pattern(700));
    store.Put(u"\\small", Pattern(9));
    store.Put(u"\\long", Pattern(5000));
    store.MakeDirectory(u"\\many\\made");
    store.Put(u"\\many\\made\\" + std::u16string(60, u'l'), Pattern(40));
    store.Move(u"\\deep", u"\\deeper");
    store.Move(u"\\many\\name b", u"\\b");
    int deletes = 0;
    for (auto at = content.rbegin(); at != content.rend() && deletes < 30; ++at, ++deletes)
        store.Delete(at->first);
    store.Close();
}

class Hostile : public testing::Test {
  protected:
    // A run over `file` stays within work that the page count bounds.
    void Run(const Bytes& file, uint32_t pageSize) {
        WriteBytes(dir_ / "a", file);
        const CountingFiles counting;
        Exercise(dir_ / "a");
        const uint64_t pages = file.size() / pageSize + 1;
        EXPECT_LT(counting.Calls(), 4000 + 100 * pages);
    }
    const TempDir dir_;
};

// A link of some kind, or a number that steers a walk, in some page of the rich tree.
struct Target {
    const char* what;
    std::u16string path;
    std::vector<uint32_t> Place::*pages;
    size_t offset;
};

const Target kTargets[] = {
    {"header chain", u"\\small", &Place::headerPages, 16},
    {"header chain of the root", u"", &Place::headerPages, 16},
    {"end offset", u"\\small", &Place::headerPages, 32},
    {"end offset of the root", u"", &Place::headerPages, 32},
    {"record type", u"\\small", &Place::headerPages, 84},
    {"record size and type", u"\\small", &Place::headerPages, 36},
    {"stream record", u"\\long", &Place::headerPages, 86},
    {"stream link", u"\\long", &Place::headerPages, 92},
    {"index link", u"\\long", &Place::headerPages, 104},
    {"size of a file", u"\\paged", &Place::headerPages, 76},
    {"high size of a file", u"\\paged", &Place::headerPages, 80},
    {"block method", u"\\coded", &Place::headerPages, 96},
    {"pages per block", u"\\coded", &Place::headerPages, 104},
    {"bytes in a coded page", u"\\coded", &Place::streamPages, 30},
    {"code", u"\\coded", &Place::streamPages, 34},
    {"stream chain", u"\\long", &Place::streamPages, 16},
    {"stream ordinal", u"\\paged", &Place::streamPages, 24},
    {"stream ordinal of an indexed file", u"\\long", &Place::streamPages, 24},
    {"index entry", u"\\long", &Place::indexPages, 40},
    {"index chain", u"\\long", &Place::indexPages, 16},
    {"entry chain", u"\\many", &Place::entryPages, 16},
    {"entry's object", u"\\many", &Place::entryPages, 32},
    {"entry's header page", u"\\many", &Place::entryPages, 36},
    {"entry's name length", u"\\many", &Place::entryPages, 44},
    {"entry's name page", u"\\many", &Place::entryPages, 48},
    {"directory link", u"\\many", &Place::headerPages, 92},
    {"name chain", u"\\" + std::u16string(300, u'y'), &Place::namePages, 16},
    {"root's entry chain", u"", &Place::entryPages, 16},
    {"root's directory link", u"", &Place::headerPages, 92},
    {"owner", u"\\long", &Place::streamPages, 20},
};

// Every other value at each page size: one tells as much as the other, and the work is long.
TEST_F(Hostile, EveryLinkToItselfToOthersAndToNowhere) {
    uint32_t turn = 0;
    for (uint32_t pageSize : {256u, 512u}) {
        Form form;
        form.pageSize = pageSize;
        const Item root = RichTree(pageSize);
        const Builder sound(form, root);
        for (const Target& target : kTargets) {
            const std::vector<uint32_t>& pages = sound.At(target.path).*target.pages;
            const uint32_t last = pages.back(), first = pages.front();
            for (uint32_t value :
                 {0u, 1u, 2u, first, last, sound.PageCount() - 1, sound.PageCount(), pageSize / 2,
                  13u, 0x7FFFu, 0xFFFFu, 0x10001u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
                if ((++turn % 2 == 0) == (pageSize == 256)) continue;
                for (uint32_t page : {first, last}) {
                    SCOPED_TRACE(std::string(target.what) + " = " + std::to_string(value));
                    Builder builder = sound;
                    Put32(builder.Page(page), target.offset, value);
                    Run(builder.Finish(), pageSize);
                }
            }
        }
    }
}

TEST_F(Hostile, DirectoriesInCircles) {
    const Item root = Directory(
        u"", {Directory(u"a", {Directory(u"b", {File(u"c")})}), Directory(u"d", {File(u"e")})});
    const Builder sound({}, root);
    const Place& a = sound.At(u"\\a");
    const Place& b = sound.At(u"\\a\\b");
    const Place& c = sound.At(u"\\a\\b\\c");
    const Place& d = sound.At(u"\\d");
    // A child that is its own parent, its grandparent, the root; one object in two directories.
    for (const Place* child : {&b, &c}) {
        for (const std::pair<uint32_t, uint32_t>& object :
             {std::pair(a.fileId, a.headerPage), std::pair(b.fileId, b.headerPage),
              std::pair(d.fileId, d.headerPage), std::pair(1u, 2u), std::pair(1u, a.headerPage)}) {
            Builder builder = sound;
            Put32(builder.Page(child->entryPage), child->entryOffset, object.first);
            Put32(builder.Page(child->entryPage), child->entryOffset + 4, object.second);
            Put32(builder.Page(child->entryPage), child->entryOffset + 8, 2);
            Run(builder.Finish(), 512);
        }
    }
    // An EntryPage in two directories.
    Builder builder = sound;
    Put32(builder.Page(d.headerPage), 92, a.entryPages[0]);
    Run(builder.Finish(), 512);
}

TEST_F(Hostile, SuperblockNumbersLie) {
    const Builder sound({}, RichTree(512));
    for (size_t at :
         {4, 8, 12, 152, 156, 160, 164, 168, 172, 176, 180, 184, 188, 236, 240, 244, 248})
        for (uint32_t value : {0u, 1u, 2u, 3u, 31u, 255u, 256u, 0xFFFFu, 0x10000u, 0x7FFFFFFFu,
                               0xFFFFFFFEu, 0xFFFFFFFFu}) {
            SCOPED_TRACE("superblock " + std::to_string(at) + " = " + std::to_string(value));
            Builder builder = sound;
            Put32(builder.Page(1), at, value);
            Run(builder.Finish(), 512);
        }
}

TEST_F(Hostile, MapsLie) {
    Form form;
    form.pageSize = 256;
    form.freePages = 100;
    const Builder sound(form, RichTree(256));
    std::mt19937 dice(1);
    for (uint32_t round = 0; round < 60 * LongTests(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        Builder builder = sound;
        for (int i = 0; i < 5; ++i) {
            uint32_t page = dice() % builder.PageCount();
            if (page % 128 == 0) page = 1;
            const uint16_t slots[] = {0, 1, 32, 34, 65519, 65520, 65535, 0x574E};
            builder.SetSlot(page, slots[dice() % std::size(slots)]);
        }
        if (round % 10 == 0) Put16(builder.Page(128), 0, static_cast<uint32_t>(dice()));
        Run(builder.Finish(), 256);
    }
}

TEST_F(Hostile, LogsLie) {
    Form form;
    form.logPending = 1;
    std::mt19937 dice(1);
    for (uint32_t round = 0; round < 150 * LongTests(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        form.foreign = round % 2 != 0;
        Builder builder(form, Directory(u"", {Paged(File(u"a", Pattern(2000))), File(u"b")}));
        const auto page = [&] {
            const uint32_t pages[] = {
                0,   1,          2,         3, 5, builder.PageCount() - 1, builder.PageCount(),
                256, 0xFFFFFFFF, 0x7FFFFFFF};
            return pages[dice() % std::size(pages)];
        };
        std::vector<LogPage> entries;
        for (int i = 0; i < 6; ++i) {
            const uint16_t kinds[] = {0, 9, 32, 34, 0x574E, kListOfFrees, kListOfRewrites, 65535};
            LogPage entry{kinds[dice() % std::size(kinds)], page(), 5, Bytes(512, 0xFF), {}};
            for (int j = 0; j < 4; ++j) entry.list.push_back(page());
            entries.push_back(entry);
        }
        const std::vector<Bytes> log = SequentialLog(form, {5}, entries);
        std::filesystem::remove(dir_ / "a.log");
        if (round % 3 == 0) {
            builder.AddInFileLog(log, round % 7);
        } else if (round % 3 == 1) {
            builder.AddChainedLog({page(), page(), page()});
            // The log's pages lead anywhere, themselves included.
            uint8_t* last = builder.Page(builder.PageCount() - 1);
            Put32(last, 8, page());
            Put32(last, 16, builder.PageCount() - 1 - dice() % 2);
            Put32(builder.Page(builder.PageCount() - 2), 16, builder.PageCount() - 2);
        } else {
            WriteBytes(dir_ / "a.log", Joined(log));
        }
        Run(builder.Finish(), 512);
    }
}

TEST_F(Hostile, RandomBytes) {
    for (uint32_t pageSize : {256u, 512u}) {
        for (uint32_t seed = 1; seed <= 150 * LongTests(); ++seed) {
            SCOPED_TRACE("page size " + std::to_string(pageSize) + " seed " + std::to_string(seed));
            std::mt19937 dice(seed);
            Form form;
            form.pageSize = pageSize;
            form.foreign = seed % 3 == 0;
            static const Item root = RichTree(512);
            Bytes file = Builder(form, pageSize == 512 ? root : RichTree(pageSize)).Finish();
            const uint32_t changes = 1 + static_cast<uint32_t>(dice() % 40);
            for (uint32_t i = 0; i < changes; ++i) {
                // Headers are where the numbers are.
                size_t at = dice() % file.size();
                if (i % 4 != 0) at = at / pageSize * pageSize + dice() % 110;
                file[at % file.size()] = static_cast<uint8_t>(dice() % 3 == 0 ? 0xFF : dice());
            }
            if (seed % 5 == 0) file.resize(file.size() / 2 + dice() % 600);
            Run(file, pageSize);
        }
    }
}

TEST_F(Hostile, RandomPagesExchanged) {
    const Builder sound({}, RichTree(512));
    for (uint32_t seed = 1; seed <= 80 * LongTests(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 dice(seed);
        Builder builder = sound;
        for (int i = 0; i < 4; ++i) {
            const uint32_t from = 2 + static_cast<uint32_t>(dice() % (builder.PageCount() - 2));
            const uint32_t to = 2 + static_cast<uint32_t>(dice() % (builder.PageCount() - 2));
            if (from == to) continue;
            std::copy_n(builder.PageBytes(from).begin(), 512, builder.Page(to));
            if (i % 2 == 0) Put32(builder.Page(to), 4, to);
        }
        Run(builder.Finish(), 512);
    }
}

}  // namespace
}  // namespace support::container
