// SPDX-License-Identifier: MIT
// Names, paths, links, patterns and statuses: what the model does not know, a row a case.
#include <gtest/gtest.h>

#include "storage/core/Transaction.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/Path.h"
#include "tests/container/EngineStore.h"
#include "tests/container/Shapes.h"
#include "tests/support/ReadOnlyScope.h"

namespace {

using namespace storage;
using namespace support::container;
using support::Bytes;

Bytes Text(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

enum Op {
    kMake,
    kPut,
    kCreate,
    kDelete,
    kMove,
    kText,
    kAttributes,
    kEmpty,
    kList,
    kListAll,
    kCase
};

// One operation, and what it says: a status as a number, else the content, attributes, or names
// with spaces between.
struct Row {
    Op op;
    std::u16string path, other;
    std::string says = "0";
};

std::string Told(Status status, const std::string& text) {
    return status == kOk ? text : std::to_string(status);
}

std::string List(EngineStore& store, const std::u16string& pattern, uint32_t mask, uint32_t flags) {
    StorageSearchStruct record{};
    std::string names;
    Status status = StorageFindFirst(store, &record, ToWide(pattern).c_str(), mask,
                                     static_cast<int32_t>(flags));
    for (; status == kOk; status = StorageFindNext(store, &record))
        names += (names.empty() ? "" : " ") +
                 platform::ToUtf8((flags & kFindFullName) != 0 ? record.fullName : record.name);
    EXPECT_EQ(StorageFindNext(store, &record), kNoMore) << "once and for all";
    EXPECT_EQ(StorageFindClose(store, &record), kOk);
    return Told(status == kNoMore ? kOk : status, names);
}

std::string Do(EngineStore& store, const Row& row) {
    Bytes body;
    FileHandle* file = reinterpret_cast<FileHandle*>(1);
    uint32_t attributes = 0;
    uint8_t empty = 7;
    Status status = kOk;
    const platform::WString path = ToWide(row.path);
    // clang-format off
    switch (row.op) {
        case kMake: return Told(store.MakeDirectory(row.path), "0");
        case kPut: return Told(store.Put(row.path, Text(Narrow(row.other))), "0");
        case kCreate:  // an existing file must not be there; or is opened to be read, and emptied
            status = StorageCreateFile(store, path.c_str(), 1, row.other != u"read", 0, 0, 0,
                                       nullptr, 0, &file, !row.other.empty(), row.other == u"read");
            EXPECT_EQ(file == nullptr, status != kOk);
            if (status == kOk) StorageCloseFile(file);
            return Told(status, "0");
        case kDelete: return Told(store.Delete(row.path), "0");
        case kMove: return Told(store.Move(row.path, row.other), "0");
        case kText:
            status = store.Get(row.path, &body);
            return Told(status, std::string(body.begin(), body.end()));
        case kAttributes:
            status = store.Attributes(row.path, &attributes);
            return Told(status, "+" + std::to_string(attributes));
        case kEmpty:
            status = StorageIsDirectoryEmpty(store, path.c_str(), &empty);
            return Told(status, empty != 0 ? "yes" : "no");
        case kList: return List(store, row.path, 3, 0);
        case kListAll: return List(store, row.path, 3 | kAttrLink, kFindFullName);
        default: return Told(StorageSetCaseSensitive(store, !row.path.empty()), "0");
    }
    // clang-format on
}

void Play(EngineStore& store, const std::vector<Row>& rows) {
    for (const Row& row : rows)
        EXPECT_EQ(Do(store, row), row.says)
            << row.op << " " << Narrow(row.path) << " " << Narrow(row.other);
}

TEST(Namespace, TellsWhatIsThereAndWhatIsMissing) {
    EngineStore store(512);
    // clang-format off
    Play(store, {
        {kMake, u"\\a", u""}, {kMake, u"\\a\\b", u""}, {kPut, u"\\a\\b\\c", u"text"},
        // Every spelling names the same object.
        {kText, u"a\\b\\c", u"", "text"}, {kText, u"\\\\a\\\\\\b\\c", u"", "text"},
        {kText, u"/a:b/c", u"", "text"}, {kText, u"\\a\\b\\c\\", u"", "text"},
        {kText, u"A/B\\C:/\\", u"", "text"}, {kText, u":a\\b/c", u"", "text"},
        {kAttributes, u"", u"", "+2"}, {kAttributes, u"/:\\", u"", "+2"},
        // Missing ones, on the way and at its end.
        {kAttributes, u"\\b", u"", "-8"}, {kAttributes, u"\\b\\c", u"", "-8"},
        {kAttributes, u"\\a\\b\\c\\d", u"", "-8"}, {kMake, u"\\b\\c", u"", "-9"},
        {kMake, u"\\a\\b\\c\\d\\e", u"", "-9"}, {kPut, u"\\no\\c", u"", "-9"},
        {kDelete, u"\\a\\x", u"", "-8"}, {kMove, u"\\a\\x", u"\\x", "-8"},
        {kMove, u"\\a\\b\\c", u"\\b\\x", "-9"}, {kList, u"\\x\\*", u"", "-9"},
        {kEmpty, u"\\none", u"", "-8"},
        // The root has no name to be made, deleted or moved by.
        {kMake, u"\\", u"", "-8"}, {kDelete, u"\\", u"", "-8"}, {kMove, u"\\", u"\\x", "-8"},
        {kMove, u"\\a", u"\\", "-8"}, {kList, u"\\", u"", "-8"},
        // Names that cannot be.
        {kMake, u"\\a?", u"", "-13"}, {kPut, u"\\a\x1f", u"", "-13"}, {kMove, u"\\a", u"\\o<k", "-13"},
        {kDelete, u"\\no<", u"", "-8"},
        // What is taken.
        {kCreate, u"\\a\\b\\c", u"", "-5"}, {kCreate, u"\\a\\b", u"open", "-5"},
        {kCreate, u"\\a\\b\\c", u"read", "-31"}, {kText, u"\\a\\b\\c", u"", "text"},
        {kMake, u"\\A\\B\\C", u"", "-5"}, {kDelete, u"\\a", u"", "-28"},
        {kEmpty, u"\\a", u"", "no"}, {kEmpty, u"\\a\\b\\c", u"", "yes"},
        {kMove, u"\\a\\b\\c", u"\\a\\b\\c", "-5"}, {kMove, u"\\a\\b\\c", u"a\\b\\c", "0"},
        {kMove, u"\\a", u"\\a\\b\\a", "-24"},
        // Letters count from now on, for remembered paths too.
        {kCase, u"on", u""}, {kText, u"\\A\\b\\c", u"", "-8"}, {kPut, u"\\a\\b\\C", u"1"},
        {kPut, u"\\a\\b\\Cc", u"2"}, {kList, u"\\a\\b\\*", u"", "C Cc c"},
        {kMove, u"\\a\\b\\c", u"a\\b\\c", "-5"}, {kDelete, u"\\a\\b\\C", u""},
        {kCase, u"", u""}, {kList, u"\\a\\b\\*", u"", "c Cc"},
        {kText, u"\\a\\B\\C", u"", "text"},
    });
    // clang-format on
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
    const struct {
        std::u16string pattern;
        uint32_t mask, flags;
        std::string names;
    } rows[] = {
        // clang-format off
        {u"\\d\\*", 3, 0, "A b c e G"}, {u"\\d\\*", 2, 0, "b"}, {u"\\d\\?", 1, 0, "A c e G"},
        {u"\\d\\*", 0, 0, ""}, {u"\\d\\g", 3, 0, "G"}, {u"\\d\\g", 2, 0, ""}, {u"\\d\\x", 3, 0, ""},
        {u"\\d\\h", 3, 0, ""}, {u"d\\c", 3, kFindFullName, "\\d\\c"},
        {u"/d/G*", 3, kFindFullName, "/d/G"}, {u"\\*", 3, kFindWithDots, "d n"},
        {u"\\n\\*", 3, 0, ""}, {u"\\n\\*", 3, kFindWithDots, ". .."},
        {u"\\n\\*", 1, kFindWithDots, ""}, {u"\\d\\.?", 3, kFindWithDots, ".."},
        {u"\\d\\*", 3, kFindWithDots | kFindTimes, ". .. A b c e G"},
    };
    // clang-format on
    for (const auto& row : rows)
        EXPECT_EQ(List(store, row.pattern, row.mask, row.flags), row.names) << Narrow(row.pattern);
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
        Form form;
        form.foreign = foreign;
        Item tree = Directory(
            u"", {Directory(u"dir", {File(u"f", Text("ff")), Link(u"up", u"..\\file"),
                                     Link(u"odd", u".x\\file"), Link(u"self", u"f")}),
                  File(u"file", Text("ggg")), Link(u"abs", u"\\\\dir"), Link(u"rel", u".\\dir\\"),
                  Link(u"two", u"abs/up"), Link(u"far", u"..\\file"), Link(u"lost", u"none"),
                  Link(u"bad", u"dir\\\\f"), Paged(Link(u"paged", u"\\dir\\f")),
                  Link(u"empty", u""), File(u"l0", Text("e")), Link(u"ring", u"ring")});
        for (size_t i = 1; i <= 33; ++i) tree.children.push_back(Link(name(i), name(i - 1)));
        EngineStore store(Builder(form, tree).Finish());
        // clang-format off
        Play(store, {
            {kText, u"\\abs\\f", u"", "ff"}, {kText, u"rel\\f", u"", "ff"},
            {kText, u"\\abs\\self\\", u"", "ff"}, {kText, u"\\paged", u"", "ff"},
            {kText, u"\\dir\\up", u"", "ggg"}, {kText, u"\\dir\\odd", u"", "ggg"},
            {kText, u"\\two", u"", "ggg"}, {kText, u"\\far", u"", "-20"},
            {kText, u"\\bad", u"", "-20"}, {kText, u"\\lost", u"", "-20"},
            {kText, u"\\abs\\none", u"", "-20"}, {kMake, u"\\lost\\x", u"", "-20"},
            // 31 replacements are followed, the 32nd is not, and neither is a ring.
            {kText, u"\\l31", u"", "e"}, {kText, u"\\l32", u"", "-20"},
            {kText, u"\\ring", u"", "-20"},
            // Attributes are the link's own; full names tell where it leads.
            {kAttributes, u"\\abs", u"", "+32"}, {kAttributes, u"\\abs\\f", u"", "+1"},
            {kEmpty, u"\\abs", u"", "no"},
            {kListAll, u"\\abs\\*", u"", "\\dir\\f \\dir\\odd \\dir\\self \\dir\\up"},
            // It is deleted and moved itself.
            {kPut, u"\\abs\\g", u"new"}, {kText, u"\\dir\\g", u"", "new"},
            {kMove, u"\\abs", u"\\dir\\abs"}, {kText, u"\\dir\\abs\\abs\\g", u"", "new"},
            {kDelete, u"\\dir\\abs", u""}, {kText, u"\\dir\\f", u"", "ff"},
        });
        // clang-format on
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

TEST(Namespace, MatchesPatternsWithoutFullBacktracking) {
    const struct {
        const platform::WChar *pattern, *name;
        bool matches;
    } cases[] = {
        // clang-format off
        {WTEXT("*aab"), WTEXT("aab"), true},   {WTEXT("*aab"), WTEXT("aaab"), false},
        {WTEXT("*issip*"), WTEXT("mississippi"), false},
        {WTEXT("m*iss*ippi"), WTEXT("mississippi"), true},
        {WTEXT("*"), WTEXT(""), true},         {WTEXT("*.*"), WTEXT("any name"), true},
        {WTEXT("*.*"), WTEXT("a.b"), true},    {WTEXT("abc."), WTEXT("abc"), true},
        {WTEXT("abc."), WTEXT("abc.d"), false}, {WTEXT("abc.*"), WTEXT("abc"), true},
        {WTEXT("a?"), WTEXT("a"), false},      {WTEXT("a?"), WTEXT("ab"), true},
        {WTEXT("?"), WTEXT(""), false},        {WTEXT("*."), WTEXT("ab.c"), false},
        {WTEXT("*.y"), WTEXT("xy"), false},    {WTEXT("*?"), WTEXT("x"), true},
        {WTEXT("*??"), WTEXT("x"), false},     {WTEXT("*?x"), WTEXT("aax"), true},
        {WTEXT("a**b"), WTEXT("ab"), true},    {WTEXT("**"), WTEXT("a"), true},
        {WTEXT("a"), WTEXT("ab"), false},      {WTEXT("ab"), WTEXT("a"), false},
        {WTEXT(""), WTEXT("a"), false},        {WTEXT(""), WTEXT(""), true},
        {WTEXT("."), WTEXT("."), true},        {WTEXT("*"), WTEXT(".."), true},
        {WTEXT("k?Y"), WTEXT("KEY"), true},    {WTEXT("\u00E4"), WTEXT("\u00C4"), false},
        {WTEXT("{"), WTEXT("["), false},
    };
    // clang-format on
    for (const auto& c : cases)
        EXPECT_EQ(MatchPattern(c.name, c.pattern, false), c.matches)
            << platform::ToUtf8(c.pattern) << " on " << platform::ToUtf8(c.name);
    EXPECT_FALSE(MatchPattern(WTEXT("KEY"), WTEXT("k?Y"), true));
}

TEST(Namespace, JoinsThePartsOfAPath) {
    const struct {
        const platform::WChar *prefix, *target, *rest, *result;  // null: refused
    } cases[] = {
        {WTEXT("\\a\\"), WTEXT("b"), WTEXT("\\c"), WTEXT("\\a\\b\\c")},
        {WTEXT("\\a\\"), WTEXT("b\\"), WTEXT("\\c"), WTEXT("\\a\\b\\\\c")},
        {WTEXT("\\a\\"), WTEXT("\\\\b/d"), WTEXT(""), WTEXT("\\b\\d")},
        {WTEXT("\\a\\"), WTEXT("\\"), WTEXT("\\c"), WTEXT("\\\\c")},
        {WTEXT("\\a\\"), WTEXT(".\\b"), WTEXT(""), WTEXT("\\a\\b")},
        {WTEXT("\\a\\b\\"), WTEXT("..\\c"), WTEXT(""), WTEXT("\\a\\c")},
        {WTEXT("\\a\\b\\"), WTEXT(".x\\c"), WTEXT(""), WTEXT("\\a\\c")},
        {WTEXT("\\a\\b\\"), WTEXT("..\\..\\c"), WTEXT(""), WTEXT("\\c")},
        {WTEXT("\\a\\"), WTEXT("...\\c"), WTEXT(""), WTEXT("\\a\\...\\c")},
        {WTEXT("\\a\\"), WTEXT("..\\..\\c"), WTEXT(""), nullptr},
        {WTEXT("\\a\\"), WTEXT("\\.."), WTEXT(""), nullptr},
        {WTEXT("\\"), WTEXT("x\\..\\..\\y"), WTEXT(""), nullptr},
        {WTEXT("\\a\\"), WTEXT("b\\\\c"), WTEXT(""), nullptr},
    };
    for (const auto& c : cases) {
        platform::WChar* path = nullptr;
        EXPECT_EQ(NormalizePath(&path, '\\', c.prefix, c.target, c.rest),
                  c.result == nullptr ? kBadPath : kOk)
            << platform::ToUtf8(c.target);
        EXPECT_EQ(path == nullptr, c.result == nullptr);
        if (path != nullptr && c.result != nullptr) {
            EXPECT_EQ(platform::WStringView(path), platform::WStringView(c.result));
        }
        platform::HeapRelease(path);
    }
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

TEST(Namespace, KeepsTimes) {
    EngineStore store(512);
    ASSERT_EQ(store.MakeDirectory(u"\\d"), kOk);
    double created = 0, modified = 0, accessed = 0;
    ASSERT_EQ(StorageGetFileTimes(store, WTEXT("\\d"), &created, &modified, &accessed), kOk);
    EXPECT_GT(created, 40000);
    EXPECT_EQ(created, accessed);
    ASSERT_EQ(store.Move(u"\\d", u"\\e"), kOk);
    double later = 0;
    ASSERT_EQ(StorageGetFileTimes(store, WTEXT("\\e"), nullptr, &later, nullptr), kOk);
    EXPECT_EQ(later, modified);
    EXPECT_EQ(StorageGetFileTimes(store, WTEXT("\\d"), &created, nullptr, nullptr), kNotFound);
    EXPECT_EQ(created, 0);
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
    EXPECT_EQ(StorageClose(nullptr), kInvalid);
    EXPECT_EQ(StorageCloseFile(nullptr), kInvalid);
    EXPECT_EQ(StorageIsCorrupted(nullptr, nullptr), kInvalid);
    EXPECT_EQ(StorageDeleteFile(nullptr, WTEXT("\\a")), kInvalid);
    EXPECT_EQ(StorageCompact(nullptr, nullptr), kInvalid);
}

TEST(Namespace, GivesIdleObjectsUpOldestFirst) {
    EngineStore store(512);
    for (size_t i = 0; i < 200; ++i) ASSERT_EQ(store.Put(Numbered(u"\\f", i), Text("x")), kOk);
    ASSERT_EQ(store.Reopen(), kOk);
    for (size_t i = 0; i < 200; ++i) EXPECT_EQ(store.Body(Numbered(u"\\f", i)), Text("x"));
    const ObjectState* objects = store.Container()->objects;
    EXPECT_LE(objects->fileObjects.Count(), kIdleObjectLimit + 2);
    EXPECT_EQ(objects->idle.tail->entry->nameUnits, 3u) << "one of the later ones";
}

// Neither the container nor the log that waits beside it.
TEST(Namespace, ChangesNothingWhereItMayNotWrite) {
    const support::TempDir dir;
    Form form;
    form.logPending = 1;
    Builder builder(form, support::container::Directory(
                              u"", {support::container::Directory(u"d", {File(u"f", Text("text"))}),
                                    Paged(File(u"bad", Pattern(900)))}));
    Put16(builder.Page(builder.At(u"\\bad").streamPages.back()), 0, 36);
    support::WriteBytes(dir / "a.fbr", builder.Finish());
    support::WriteBytes(dir / "a.log", Bytes(1024, 1));
    {
        const support::ReadOnlyScope readOnly(dir / "a.fbr");
        EngineStore store;
        ASSERT_EQ(store.Open(dir / "a.fbr"), kOk);
        // clang-format off
        Play(store, {{kText, u"\\d\\f", u"", "text"}, {kList, u"\\d\\*", u"", "f"},
                     {kMake, u"\\d\\e", u"", "-17"}, {kMake, u"\\d\\f", u"", "-5"},
                     {kPut, u"\\d\\e", u"", "-17"}, {kDelete, u"\\none", u"", "-17"},
                     {kMove, u"\\none", u"\\other", "-17"}, {kText, u"\\d", u"", "-17"},
                     {kText, u"\\bad", u"", "-3"}});
        // clang-format on
        uint8_t corrupted = 9;
        EXPECT_EQ(StorageIsCorrupted(store, &corrupted), kOk);
        EXPECT_EQ(corrupted, 0) << "it keeps that to itself";
        EXPECT_EQ(store.Close(), kOk);
    }
    EXPECT_EQ(support::ReadBytes(dir / "a.fbr"), builder.Finish());
    EXPECT_EQ(support::ReadBytes(dir / "a.log"), Bytes(1024, 1));
}

}  // namespace
