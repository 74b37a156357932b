// SPDX-License-Identifier: MIT
// Names, paths, links, patterns and statuses: what the model does not know, a row a case.
#include <gtest/gtest.h>

#include <algorithm>

#include "storage/core/Transaction.h"
#include "storage/namespace/Directory.h"
#include "tests/container/Edit.h"
#include "tests/container/Shapes.h"
#include "tests/container/Verbs.h"
#include "tests/support/ReadOnlyScope.h"

namespace {

using namespace storage;
using namespace support::container;
using support::Bytes;

Bytes Text(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

std::vector<contract::Section> Sections() {
    return SectionsIn("storage/namespace.txt");
}

// Each line says a status as a number, or what the call gives.
void Play(EngineStore& store, const contract::Section& section) {
    for (const auto& [number, line] : section.lines) {
        if (line.starts_with("has ")) continue;
        const size_t arrow = line.find(" ->");
        std::string told;
        const Status status = Do(store, contract::WordsOf(line.substr(0, arrow)), &told);
        EXPECT_EQ(status == kOk ? told : std::to_string(status),
                  arrow == line.npos ? "0" : line.substr(std::min(arrow + 4, line.size())))
            << "line " << number << ": " << line;
    }
}

// On a store with what is said behind "has".
TEST(Namespace, SaysWhatItsLinesSay) {
    std::vector<contract::Section> sections = Sections();
    sections.pop_back();
    EXPECT_EQ(sections.size(), 5u);
    for (const contract::Section& section : sections) {
        std::string tree;
        for (const auto& [number, line] : section.lines)
            if (line.starts_with("has ")) tree += line.substr(4) + ";";
        for (const bool foreign : {false, true}) {
            EngineStore store(Builder({512, foreign}, Tree(tree)).Finish());
            Play(store, section);
            store.ReadSound();
        }
    }
    EXPECT_FALSE(MatchPattern(WTEXT("KEY"), WTEXT("k?Y"), true));
}

// Its search goes with a store, or when its record is used again.
TEST(Namespace, GivesSearchesUp) {
    EngineStore store(Builder({}, RichTree(512)).Finish());
    StorageSearchStruct first{}, again{};
    for (StorageSearchStruct* record : {&first, &again, &again})
        ASSERT_EQ(StorageFindFirst(store, record, WTEXT("\\many\\*"), 3, kFindSize), kOk);
    EXPECT_EQ(first.created, 45000.25);
    EXPECT_EQ(store.Close(), kOk);
    EXPECT_TRUE(first.search == nullptr && first.name == nullptr && again.search == nullptr);
}

TEST(Namespace, RefusesNames) {
    for (platform::WChar unit = 0; unit < 128; ++unit) {
        const bool bad = unit < 32 || platform::WString(WTEXT("/\\?*:<>|")).find(unit) !=
                                          platform::WString::npos;
        EXPECT_EQ(CheckName(platform::WString{'a', unit, 'b'}), !bad) << int{unit};
    }
    EXPECT_TRUE(CheckName(WTEXT("")));
}

// Pages are taken when they are needed, given back, and used again.
TEST(Namespace, CountsPages) {
    EngineStore store(512);
    const uint32_t used = store.ReadSound().usedPages;
    const auto put = [&](const std::u16string& path) {
        EXPECT_EQ(store.Put(path, Text("x")), kOk);
    };
    for (size_t i = 0; i < 7; ++i) put(Numbered(u"\\f", i));
    EXPECT_EQ(store.ReadSound().usedPages, used + 8) << "one page of entries";
    put(u"\\f7");
    EXPECT_EQ(store.ReadSound().usedPages, used + 10);
    for (size_t i = 0; i < 8; ++i) EXPECT_EQ(store.Delete(Numbered(u"\\f", i)), kOk);
    EXPECT_EQ(store.ReadSound().usedPages, used + 2) << "a directory keeps its pages";
    std::u16string name = u"\\start";
    put(name);
    for (const size_t length : {5, 23, 22, 262, 263, 502, 503, 24, 263, 3}) {
        const std::u16string next = u"\\" + std::u16string(length, u'a' + length % 26);
        ASSERT_EQ(store.Move(name, next), kOk) << length;
        name = next;
        const size_t tail = length <= 22 ? 0 : (length - 22 + 239) / 240;
        EXPECT_EQ(store.ReadSound().usedPages, used + 3 + tail) << length;
        EXPECT_EQ(store.Body(name), Text("x"));
    }
    // An id is never used twice, and that of what could not be made is not used up.
    EXPECT_EQ(store.Put(u"\\no\\c", {}), kParentMissing);
    put(u"\\b");
    EXPECT_EQ(store.ReadSound().At(u"\\b")->fileId, 11u);
    uint32_t id = 0;
    EXPECT_EQ(StorageGetFileId(EngineFile(store, u"\\b").Handle(), &id), kOk);
    EXPECT_EQ(id, 11u);
}

TEST(Namespace, HoldsManyNamesAndDeepTrees) {
    EngineStore store(512);
    for (size_t i = 0; i < 2000; ++i)
        ASSERT_EQ(store.Put(Numbered(u"\\", i * 7919 % 2000), {}), kOk);
    for (size_t i = 0; i < 2000; i += 3) ASSERT_EQ(store.Delete(Numbered(u"\\", i)), kOk);
    for (int round = 0; round < 2; ++round) {
        std::vector<std::pair<std::u16string, uint32_t>> listed;
        EXPECT_EQ(store.List(u"", &listed), kOk);
        EXPECT_EQ(listed.size(), 2000u - 667);
        EXPECT_TRUE(std::is_sorted(listed.begin(), listed.end()));
        store.ReadSound();
    }
    // What is below a file goes with it, however deep it reaches.
    const uint32_t used = store.ReadSound().usedPages;
    std::u16string path = u"\\0";
    ASSERT_EQ(store.Put(path, Text("top")), kOk);
    for (int i = 0; i < 3000; ++i) ASSERT_EQ(store.MakeDirectory(path += u"\\k"), kOk);
    ASSERT_EQ(store.Reopen(), kOk);
    EXPECT_EQ(store.Put(path + u"\\v", Text("deep")), kOk);
    EXPECT_EQ(store.Body(path + u"\\v"), Text("deep"));
    EXPECT_EQ(store.Delete(u"\\0"), kOk);
    EXPECT_EQ(store.ReadSound().usedPages, used);
}

TEST(Namespace, GivesAccessAsAskedFor) {
    EngineStore store(Builder({}, Tree("fixed 'f attributes=64 ; f 'x")).Finish());
    EXPECT_EQ(EngineFile(store, u"\\fixed").Opened(), kAccess);
    EXPECT_EQ(EngineFile(store, u"\\fixed", false, false, true).Opened(), kOk);
    FileHandle* writer = nullptr;
    ASSERT_EQ(StorageOpenFile(store, WTEXT("\\f"), 0, 1, 0, 0, nullptr, 0, &writer), kOk);
    char text[4];
    uint32_t done = 7;
    EXPECT_EQ(StorageReadFile(writer, text, 1, &done), kAccess);
    EXPECT_EQ(done, 0u);
    StorageCloseFile(writer);
    for (const Status status :
         {StorageClose(nullptr), StorageCloseFile(nullptr), StorageIsCorrupted(nullptr, nullptr),
          StorageDeleteFile(nullptr, WTEXT("\\a")), StorageCompact(nullptr, nullptr)})
        EXPECT_EQ(status, kInvalid);
}

// Neither the container nor the log that waits beside it.
TEST(Namespace, ChangesNothingWhereItMayNotWrite) {
    const support::TempDir dir;
    Form form;
    form.logPending = 1;
    Builder builder(form, Tree("d\\f 'text ; bad *900 pages"));
    Edit(&builder, "bad.stream.1+0:16 36");
    support::WriteBytes(dir / "a.fbr", builder.Finish());
    support::WriteBytes(dir / "a.log", Bytes(1024, 1));
    {
        const support::ReadOnlyScope readOnly(dir / "a.fbr");
        EngineStore store;
        ASSERT_EQ(store.Open(dir / "a.fbr"), kOk);
        Play(store, Sections().back());
        uint8_t corrupted = 9;
        EXPECT_EQ(StorageIsCorrupted(store, &corrupted), kOk);
        EXPECT_EQ(corrupted, 0) << "it keeps that to itself";
        EXPECT_EQ(store.Close(), kOk);
    }
    EXPECT_EQ(support::ReadBytes(dir / "a.fbr"), builder.Finish());
    EXPECT_EQ(support::ReadBytes(dir / "a.log"), Bytes(1024, 1));
}

}  // namespace
