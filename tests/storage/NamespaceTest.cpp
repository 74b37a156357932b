// SPDX-License-Identifier: MIT
// Names, paths, links, patterns and statuses: what the model does not know, a row a case.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "storage/core/Transaction.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/Path.h"
#include "tests/container/Edit.h"
#include "tests/container/EngineStore.h"
#include "tests/container/Shapes.h"
#include "tests/contract/ScriptText.h"
#include "tests/support/ReadOnlyScope.h"

namespace {

using namespace storage;
using namespace support::container;
using platform::WChar;
using support::Bytes;

Bytes Text(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

std::string Told(Status status, const std::string& text) {
    return status == kOk ? text : std::to_string(status);
}

std::string List(EngineStore& store, const WChar* pattern, uint32_t mask, uint32_t flags) {
    StorageSearchStruct record{};
    std::string names;
    Status status = StorageFindFirst(store, &record, pattern, mask, static_cast<int32_t>(flags));
    for (; status == kOk; status = StorageFindNext(store, &record))
        names += (names.empty() ? "" : " ") +
                 platform::ToUtf8((flags & kFindFullName) != 0 ? record.fullName : record.name);
    EXPECT_EQ(StorageFindNext(store, &record), kNoMore) << "once and for all";
    EXPECT_EQ(StorageFindClose(store, &record), kOk);
    return Told(status == kNoMore ? kOk : status, names);
}

// An existing file must not be there; or is opened to be read, and emptied.
Status Create(EngineStore& store, const WChar* path, const platform::WString& how) {
    FileHandle* file = reinterpret_cast<FileHandle*>(1);
    const bool read = how == WTEXT("read");
    const Status status =
        StorageCreateFile(store, path, 1, !read, 0, 0, 0, nullptr, 0, &file, !how.empty(), read);
    EXPECT_EQ(file == nullptr, status != kOk);
    if (status == kOk) StorageCloseFile(file);
    return status;
}

std::string Join(const contract::Words& parts) {
    WChar* path = nullptr;
    const Status status =
        NormalizePath(&path, '\\', parts[0].c_str(), parts[1].c_str(), parts[2].c_str());
    std::string told = Told(status, path == nullptr ? "" : platform::ToUtf8(path));
    EXPECT_EQ(path == nullptr, status != kOk);
    platform::HeapRelease(path);
    return told;
}

// What one line says: a status as a number, else the content, attributes, or names with spaces
// between.
std::string Do(EngineStore& store, const std::string& verb, const contract::Words& words) {
    const WChar* path = words[0].c_str();
    const std::u16string at = ToUnits(path), other = ToUnits(words[1].c_str());
    Bytes body;
    uint32_t attributes = 0, flags = 0;
    uint8_t empty = 7;
    if (verb == "make") return Told(store.MakeDirectory(at), "0");
    if (verb == "put") return Told(store.Put(at, Text(Narrow(other))), "0");
    if (verb == "create") return Told(Create(store, path, words[1]), "0");
    if (verb == "delete") return Told(store.Delete(at), "0");
    if (verb == "move") return Told(store.Move(at, other), "0");
    if (verb == "case") return Told(StorageSetCaseSensitive(store, !at.empty()), "0");
    if (verb == "text") {
        const Status status = store.Get(at, &body);
        return Told(status, std::string(body.begin(), body.end()));
    }
    if (verb == "attributes") {
        const Status status = store.Attributes(at, &attributes);
        return Told(status, "+" + std::to_string(attributes));
    }
    if (verb == "empty") {
        const Status status = StorageIsDirectoryEmpty(store, path, &empty);
        return Told(status, empty != 0 ? "yes" : "no");
    }
    if (verb == "match") return MatchPattern(words[1], words[0], false) ? "yes" : "no";
    if (verb == "join") return Join(words);
    for (const auto& [word, flag] : {std::pair(WTEXT("full"), kFindFullName),
                                     {WTEXT("dots"), kFindWithDots},
                                     {WTEXT("times"), kFindTimes}})
        if (std::count(words.begin(), words.end(), platform::WString(word)) != 0) flags |= flag;
    return List(store, path, static_cast<uint32_t>(std::stoul(Narrow(other))), flags);
}

// Plays a section of namespace.txt.
void Play(EngineStore& store, const std::string& section) {
    std::ifstream in(std::filesystem::path(ZRFS_SOURCE_DIR) / "tests/storage/namespace.txt");
    int lines = 0;
    std::string line;
    while (std::getline(in, line) && line != "== " + section) continue;
    while (std::getline(in, line) && !line.empty()) {
        if (line[0] == '#') continue;
        const size_t arrow = line.find(" ->");
        contract::Words words = contract::WordsOf(line.substr(0, arrow));
        const std::string verb = platform::ToUtf8(words[0]);
        words.erase(words.begin());
        words.resize(std::max<size_t>(words.size(), 3));
        const std::string says =
            arrow == line.npos ? "0" : line.substr(std::min(arrow + 4, line.size()));
        EXPECT_EQ(Do(store, verb, words), says) << line;
        ++lines;
    }
    EXPECT_GT(lines, 5);
}

TEST(Namespace, TellsWhatIsThereAndWhatIsMissing) {
    EngineStore store(512);
    Play(store, "What is there and what is missing");
    store.ReadSound();
}

TEST(Namespace, SearchesByMaskAndPattern) {
    Item hidden = File(u"h");
    hidden.attributes = kAttrHidden;
    EngineStore store(
        Builder({}, support::container::Directory(
                        u"", {support::container::Directory(
                                  u"d", {File(u"e"), File(u"A"), File(u"c"), hidden, File(u"G"),
                                         support::container::Directory(u"b")}),
                              support::container::Directory(u"n")}))
            .Finish());
    Play(store, "Searches");
    EXPECT_TRUE(store.Has(u"\\d\\h"));
    // A search goes with its store, or when its record is used again.
    StorageSearchStruct first{}, again{};
    for (StorageSearchStruct* record : {&first, &again, &again})
        ASSERT_EQ(StorageFindFirst(store, record, WTEXT("\\d\\*"), 3, kFindSize), kOk);
    EXPECT_EQ(first.created, 45000.25);
    EXPECT_EQ(store.Close(), kOk);
    EXPECT_TRUE(first.search == nullptr && first.name == nullptr && again.search == nullptr);
}

TEST(Namespace, FollowsLinks) {
    using support::container::Directory;
    const auto name = [](size_t i) { return Numbered(u"l", i); };
    for (const bool foreign : {false, true}) {
        const Form form{512, foreign};
        Item tree = Directory(
            u"", {Directory(u"dir", {File(u"f", Text("ff")), Link(u"up", u"..\\file"),
                                     Link(u"odd", u".x\\file"), Link(u"self", u"f")}),
                  File(u"file", Text("ggg")), Link(u"abs", u"\\\\dir"), Link(u"rel", u".\\dir\\"),
                  Link(u"two", u"abs/up"), Link(u"far", u"..\\file"), Link(u"lost", u"none"),
                  Link(u"bad", u"dir\\\\f"), Paged(Link(u"paged", u"\\dir\\f")),
                  Link(u"empty", u""), File(u"l0", Text("e")), Link(u"ring", u"ring")});
        for (size_t i = 1; i <= 33; ++i) tree.children.push_back(Link(name(i), name(i - 1)));
        EngineStore store(Builder(form, tree).Finish());
        Play(store, "Links");
        store.ReadSound();
    }
}

TEST(Namespace, RefusesNames) {
    for (platform::WChar unit = 0; unit < 128; ++unit) {
        const bool bad = unit < 32 || platform::WString(WTEXT("/\\?*:<>|")).find(unit) !=
                                          platform::WString::npos;
        EXPECT_EQ(CheckName(platform::WString{'a', unit, 'b'}), !bad) << int{unit};
    }
    EXPECT_TRUE(CheckName(WTEXT("")));
}

TEST(Namespace, MatchesPatternsAndJoinsPaths) {
    EngineStore none;
    for (const char* section : {"Patterns", "Parts of a path"}) Play(none, section);
    EXPECT_FALSE(MatchPattern(WTEXT("KEY"), WTEXT("k?Y"), true));
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
    Item fixed = File(u"fixed", Text("f"));
    fixed.attributes = kAttrReadOnly;
    EngineStore store(
        Builder({}, support::container::Directory(u"", {fixed, File(u"f", Text("x"))})).Finish());
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
    Builder builder(form, support::container::Directory(
                              u"", {support::container::Directory(u"d", {File(u"f", Text("text"))}),
                                    Paged(File(u"bad", Pattern(900)))}));
    Edit(&builder, "bad.stream.1+0:16 36");
    support::WriteBytes(dir / "a.fbr", builder.Finish());
    support::WriteBytes(dir / "a.log", Bytes(1024, 1));
    {
        const support::ReadOnlyScope readOnly(dir / "a.fbr");
        EngineStore store;
        ASSERT_EQ(store.Open(dir / "a.fbr"), kOk);
        Play(store, "May not be written");
        uint8_t corrupted = 9;
        EXPECT_EQ(StorageIsCorrupted(store, &corrupted), kOk);
        EXPECT_EQ(corrupted, 0) << "it keeps that to itself";
        EXPECT_EQ(store.Close(), kOk);
    }
    EXPECT_EQ(support::ReadBytes(dir / "a.fbr"), builder.Finish());
    EXPECT_EQ(support::ReadBytes(dir / "a.log"), Bytes(1024, 1));
}

}  // namespace
