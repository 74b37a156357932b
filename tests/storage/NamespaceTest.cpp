// SPDX-License-Identifier: MIT
// Names, paths, links, patterns and statuses: what the model does not know, a row a case.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "storage/core/Transaction.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/Lookup.h"
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

// Each line says a status as a number, or what the call gives.
void Play(Session* session, int number, const std::string& line) {
    const size_t arrow = line.find(" ->");
    std::string told;
    const Status status = session->Do(support::WordsOf(line.substr(0, arrow)), &told);
    EXPECT_EQ(status == kOk ? told : std::to_string(status),
              arrow == line.npos ? "0" : line.substr(std::min(arrow + 4, line.size())))
        << "line " << number << ": " << line;
}

// Stores of what is said behind "has", in the form last told.
void Play(const support::Section& section, bool foreign) {
    Form form{512, foreign};
    std::string tree;
    std::unique_ptr<EngineStore> store;
    std::unique_ptr<Session> session;
    const auto end = [&] {
        session.reset();
        if (store != nullptr) store->ReadSound();
        store.reset();
    };
    for (const auto& [number, line] : section.lines) {
        std::istringstream words(line);
        std::string verb;
        words >> verb;
        if (verb == "form" || verb == "has") end();
        if (verb == "has") tree += line.substr(4) + ";";
        if (verb == "form") words >> form.pageSize >> form.maxPages;
        if (uint32_t settings = 0; verb == "form" && words >> settings)
            form.findSettings = settings;
        if (verb == "form" || verb == "has") continue;
        if (store == nullptr) {
            store =
                std::make_unique<EngineStore>(Builder(form, Tree(tree, form.pageSize)).Finish());
            session.reset(new Session{*store, form.pageSize});
        }
        Play(session.get(), number, line);
    }
    end();
}

TEST(Namespace, SaysWhatItsLinesSay) {
    for (const char* file : {"storage/namespace.txt", "storage/streams.txt"})
        for (const support::Section& section : SectionsIn(file))
            for (const bool foreign : {false, true}) Play(section, foreign);
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

// Who passes through a directory looks at one entry, until it is loaded: the object stays the same.
TEST(Namespace, FindsAChildBeforeAndBehindTheLoadingOfItsDirectory) {
    EngineStore store(512);
    ASSERT_EQ(store.MakeDirectory(u"\\dir"), kOk);
    for (int i = 0; i < 40; ++i) ASSERT_EQ(store.MakeDirectory(Numbered(u"\\dir\\", i)), kOk);
    const std::u16string last = Numbered(u"\\dir\\", 39), absent = Numbered(u"\\dir\\", 40);
    const auto find = [&](const std::u16string& path) {
        store.Container()->containerLock.AssertAlone();
        DirectoryHint hint;
        return FindDirectory(store, ToWide(path).c_str(), &hint);
    };
    for (const bool moved : {false, true}) {
        ASSERT_EQ(store.Reopen(), kOk);
        const FileObject* child = find(last);
        ASSERT_NE(child, nullptr);
        EXPECT_EQ(find(last), child);
        EXPECT_EQ(child->parent->flags & kEntriesLoaded, 0u);
        if (moved) {
            EXPECT_EQ(store.Move(last, u"\\dir\\moved"), kOk);
        }
        EXPECT_EQ(find(absent), nullptr);
        EXPECT_NE(child->parent->flags & kEntriesLoaded, 0u);
        EXPECT_EQ(child->parent->children.Count(), 40u);
        EXPECT_EQ(find(last), moved ? nullptr : child);
        EXPECT_EQ(find(moved ? u"\\dir\\moved" : last), child);
    }
    store.ReadSound();
}

TEST(Namespace, RefusesNothingness) {
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
        Session session{store};
        const support::Section section = SectionsIn("storage/read-only.txt").at(0);
        for (const auto& [number, line] : section.lines) Play(&session, number, line);
        uint8_t corrupted = 9;
        EXPECT_EQ(StorageIsCorrupted(store, &corrupted), kOk);
        EXPECT_EQ(corrupted, 0) << "it keeps that to itself";
        EXPECT_EQ(store.Close(), kOk);
    }
    EXPECT_EQ(support::ReadBytes(dir / "a.fbr"), builder.Finish());
    EXPECT_EQ(support::ReadBytes(dir / "a.log"), Bytes(1024, 1));
}

}  // namespace
