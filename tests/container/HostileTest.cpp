// SPDX-License-Identifier: MIT
// Damaged and hostile containers: whatever the bytes are, opening, reading all, writing and
// closing end with statuses, after work that the page count bounds. What a run finds wrong beyond
// that, the sanitizers tell. ZRFS_LONG_TESTS=n runs n times as many seeds.
#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "tests/container/Edit.h"
#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/support/ScriptText.h"

namespace support::container {
namespace {

class Hostile : public testing::Test {
  protected:
    void Run(const Bytes& file, uint32_t pageSize = 512, const Bytes& log = {}) {
        container_.Put(file, log);
        container_.ExpectBoundedWork(pageSize);
    }
    MemoryContainer container_;
};

// Every other value at each page size: one tells as much as the other, and the work is long.
// The check, or the reader that judges others in these tests, is to see such things.
TEST_F(Hostile, EveryLinkToItselfToOthersAndToNowhere) {
    std::vector<std::pair<int, std::string>> lines;
    for (const support::Section& section : SectionsIn("container/hostile.txt"))
        lines.insert(lines.end(), section.lines.begin(), section.lines.end());
    EXPECT_GT(lines.size(), 30u);
    uint32_t turn = 0;
    for (uint32_t pageSize : {256u, 512u}) {
        Builder sound({pageSize}, RichTree(pageSize));
        for (const auto& [number, line] : lines) {
            const support::Words words = support::WordsOf(line);
            const std::string place = platform::ToUtf8(words[0]), plus = platform::ToUtf8(words[1]);
            const std::vector<uint32_t> pages = PagesAt(&sound, place + " " + place + ".end");
            for (uint32_t value : {0u, 1u, 2u, pages[0], pages[1], sound.PageCount() - 1,
                                   sound.PageCount(), pageSize / 2, 13u, 0x7FFFu, 0xFFFFu, 0x10001u,
                                   0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
                if ((++turn % 2 == 0) == (pageSize == 256)) continue;
                for (uint32_t page : pages) {
                    SCOPED_TRACE(line + " = " + std::to_string(value));
                    Builder builder = sound;
                    Put32(builder.Page(page), std::stoul(plus), value);
                    const Bytes file = builder.Finish();
                    Run(file, pageSize);
                    if (value != 0xFFFFFFFF || words.size() > 2) continue;
                    container_.Put(file);
                    EXPECT_FALSE(container_.Check().FoundNothing() &&
                                 ReadContainer(file).wrong.empty());
                }
            }
        }
    }
}

TEST_F(Hostile, DirectoriesInCircles) {
    const Builder sound({}, Tree("a\\b\\c ' ; d\\e '"));
    // An EntryPage in two directories.
    std::vector<std::string> edits = {"d.head+92 a.entries"};
    // A child that is its own parent, its grandparent, the root; one object in two directories.
    for (const char* child : {"a\\b.dirent", "a\\b\\c.dirent"})
        for (const std::string id : {"a", "a\\b", "d", ""})
            for (const std::string& head : {id, std::string("a")}) {
                std::ostringstream edit;
                edit << child << "+0 " << id << ".id " << child << "+4 " << head << ".head "
                     << child << "+8 2";
                edits.push_back(edit.str());
            }
    for (const std::string& edit : edits) {
        SCOPED_TRACE(edit);
        Builder builder = sound;
        Edit(&builder, edit);
        Run(builder.Finish());
    }
}

TEST_F(Hostile, LogsLie) {
    Form form;
    form.logPending = 1;
    std::mt19937 dice(1);
    for (uint32_t round = 0; round < 150 * LongTests(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        form.foreign = round % 2 != 0;
        Builder builder(form, Tree("a *2000 pages ; b '"));
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
        Bytes beside;
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
            beside = Joined(log);
        }
        Run(builder.Finish(), 512, beside);
    }
}

}  // namespace
}  // namespace support::container
