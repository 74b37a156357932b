// SPDX-License-Identifier: MIT
// Check and repair: what is found, told and mended, case by case.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/container/Edit.h"
#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/support/EveryFailure.h"
#include "tests/support/ReadOnlyScope.h"

namespace {

using namespace support::container;
using support::Bytes;
using Pages = std::vector<uint32_t>;
using B = Builder;

Item SmallTree() {
    return Directory(u"",
                     {Directory(u"d", {File(u"in", Pattern(20))}), File(u"long", Pattern(480 * 30)),
                      File(u"paged", Pattern(480 * 5)), File(std::u16string(100, u'n'), Pattern(3)),
                      File(u"small", Pattern(40)), File(u"one"), File(u"two"), File(u"three"),
                      File(u"many", Pattern(480 * 2))});
}

class Patient : public MemoryContainer {
  public:
    explicit Patient(const Bytes& bytes) { Put(bytes); }

    // A check tells what a repair mends, and changes nothing; the container after the repair, which
    // has kept its promise.
    Reading Mended(CheckOutcome* outcome) {
        const Bytes damaged = Get();
        const CheckOutcome check = Check();
        EXPECT_EQ(check.status, 0);
        EXPECT_FALSE(check.FoundNothing());
        EXPECT_TRUE(Get() == damaged);
        *outcome = Check(kRepair);
        EXPECT_EQ(outcome->status, 0);
        EXPECT_EQ(outcome->Findings(), check.Findings());
        Reading after = ReadContainer(Get());
        EXPECT_EQ(after.wrong, "");
        ExpectPromisesKept();
        return after;
    }
    // The file's bytes after each change that a repair makes.
    std::vector<Bytes> Repaired() {
        const support::MemoryFiles::Recording recording(Files());
        EXPECT_EQ(Check(kRepair).status, 0);
        std::vector<Bytes> images;
        for (size_t i = 0; i <= recording.Changes().size(); ++i)
            images.push_back(recording.Image(Path(), i));
        return images;
    }
};

TEST(CheckRepair, SoundContainersHaveNoFindingsAndStayAsTheyAre) {
    for (const uint32_t pageSize : {256u, 512u, 4096u, 65536u}) {
        for (const bool foreign : {false, true}) {
            Form form{pageSize, foreign};
            form.freePages = 5;
            B builder(form, RichTree(pageSize));
            // A freed page that kept its header is left alone.
            const uint32_t stale = builder.AddPage(33);
            std::fill_n(builder.Page(stale) + 32, pageSize - 32, uint8_t{7});
            builder.SetSlot(stale, 0);
            const Bytes bytes = builder.Finish();
            for (const uint32_t flags : {3u, 1u, 2u, 0u}) {
                Patient patient(bytes);
                const CheckOutcome outcome = patient.Check(flags);
                EXPECT_EQ(outcome.status, 0);
                EXPECT_TRUE(outcome.FoundNothing())
                    << pageSize << foreign << " " << outcome.Findings();
                EXPECT_TRUE(patient.Get() == bytes) << pageSize << foreign << flags;
                EXPECT_EQ(outcome.Pages(1).size(), builder.PageCount());
                EXPECT_EQ(outcome.Pages(2).size(), builder.PageCount() - 1);
                EXPECT_EQ(outcome.events.front().clean, 255);
                // A check never writes, and says so.
                EXPECT_EQ(outcome.events.back().clean, (flags & 1) != 0 ? 255 : 0);
            }
        }
    }
}

// What is told with each code, where that is known, and the files that are lost.
struct Case {
    const char *what, *edits;
    std::optional<std::string> wrong{}, lost{}, entries{};
    const char* name = "";  // of the last bad entry
    std::vector<std::u16string> gone{};
};

constexpr const char* kPagedPages =
    "paged.stream paged.stream.1 paged.stream.2 paged.stream.3 paged.stream.4";
const Case kCases[] = {
    {"an entry that leads nowhere",
     "small.dirent+4 0x7FFFFFFF",
     "small.head",
     "small.head",
     "small.entry",
     "small",
     {u"\\small"}},
    {"a lost directory takes all below it",
     "d.head+0:16 34",
     {},
     "d.head d.entries d\\in.head",
     {},
     "d",
     {u"\\d", u"\\d\\in"}},
    {"a parent id of somebody else", "small.head+28 77", "small.head"},
    {"a page in use that nothing refers to", "add 34", "", "last.0"},
    {"two pages that refer only to one another",
     "add 34 add 34 last.0+12 last.1 last.0+16 last.1 last.1+12 last.0 last.1+16 last.0",
     {},
     "last.0 last.1"},
    {"a chain is mended by its index, both ends of the link", "long.stream.9+16 3",
     "long.stream.9 long.stream.10", ""},
    {"a number twice throws out the index, and the chain serves", "long.index+44 long.stream.4",
     "long.head long.index", "long.index"},
    {"a wrong level follows from the place", "paged.stream.2+24 9", "paged.stream.2"},
    {"a reference to a list that does not list the page", "paged.stream+8 long.index",
     "paged.stream"},
    {"a name that says it is longer than its pages",
     "small.dirent+12 400 zero/small.dirent+30 34",
     {},
     {},
     "small.entry"},
    {"numbers of page 1, and the mark of damage",
     "page.1+160:16 5 page.1+152 1 page.1+240 3 page.1+244 3", "page.1", "", ""},
    {"a page in use that the map has for free, and one of another kind",
     "slot/small.head 0 slot/paged.stream.2 33", "page.0", "", ""},
    {"a map that is gone", "zero/page.0+4 508", "page.0", "", ""},
    {"sizes of records",
     ".record.1+2:16 500 d.record.1+2:16 13 long.record.2+2:16 0 small.record.2+2:16 20 "
     "d\\in.record.2+2:16 4000",
     "page.2 d.head long.head small.head d\\in.head"},
    {"the root's place",
     "page.1+172 9 page.1+176 77 page.2+0:16 33 page.2+4 9 page.2+12 9 page.2+24 9",
     {},
     {},
     "page.1"},
    {"names that no path leads to, one with zeros at its end",
     "small.dirent+12 8 one.dirent+12 0 two.dirent+12 0 three.dirent+12 0 zero/one.dirent+20 44 "
     "two.dirent+22:16 0 three.dirent+22:16 0x5C",
     "", ""},
    {"a size that nothing is stored for, in pages and without",
     "one.head+76 0x40000000 many.head+76 0x40000000", "one.head many.head"},
    {"two references in one page keep the first",
     "d.head+96 0x000C0001 d.head+104 d.entries d.head+32:16 108", "d.head d.entries"},
    // An end offset that cannot be makes the object anew.
    {"513", "paged.head+32:16 513", {}, kPagedPages, {}, "", {u"\\paged"}},
    {"0", "paged.head+32:16 0", {}, kPagedPages, {}, "", {u"\\paged"}},
    {"35", "paged.head+32:16 35", {}, kPagedPages, {}, "", {u"\\paged"}},
    {"60000", "paged.head+32:16 60000", {}, kPagedPages, {}, "", {u"\\paged"}},
};

void RunCase(const Case& one) {
    SCOPED_TRACE(one.what);
    B builder({}, SmallTree());
    const Reading before = ReadContainer(builder.Finish());
    ASSERT_EQ(before.wrong, "");
    Edit(&builder, one.edits);
    Patient patient(builder.Finish());
    CheckOutcome outcome;
    const Reading after = patient.Mended(&outcome);
    const std::pair<uint32_t, const std::optional<std::string>*> codes[] = {
        {8, &one.wrong}, {9, &one.lost}, {15, &one.entries}};
    for (const auto& [code, places] : codes)
        if (places->has_value()) {
            EXPECT_EQ(outcome.Pages(code), PagesAt(&builder, **places)) << code;
        }
    EXPECT_TRUE(*one.name == 0 || outcome.name == ToUnits(std::string(one.name)));
    for (const std::u16string path : {u"\\d", u"\\d\\in", u"\\long", u"\\paged", u"\\small"}) {
        const bool gone = std::count(one.gone.begin(), one.gone.end(), path) != 0;
        const Item* found = after.At(path);
        EXPECT_EQ(found == nullptr || found->body != before.At(path)->body, gone) << Narrow(path);
    }
}

TEST(CheckRepair, MendsWhatItFinds) {
    for (const Case& one : kCases) RunCase(one);
}

// Every page of one object said to be another's, with its entry.
void ShareId(B& builder, const std::u16string& path, const char16_t* other) {
    const Place& place = builder.At(path);
    const uint32_t id = builder.At(other).fileId;
    Put32(builder.Entry(path), 0, id);
    for (const Pages& pages : {place.headerPages, place.entryPages, place.namePages,
                               place.streamPages, place.indexPages})
        for (const uint32_t page : pages) Put32(builder.Page(page), 20, id);
    if (path == u"\\d") Put32(builder.Page(builder.At(u"\\d\\in").headerPage), 28, id);
}

TEST(CheckRepair, ObjectsThatShareAnIdAllStay) {
    for (const std::u16string& path :
         {std::u16string(u"\\d"), std::u16string(u"\\long"), std::u16string(u"\\small"),
          u"\\" + std::u16string(100, u'n')}) {
        B builder({}, SmallTree());
        const Reading before = ReadContainer(builder.Finish());
        for (const char16_t* other : {u"\\paged", u""}) {
            ShareId(builder, path, other);
            Patient patient(builder.Finish());
            CheckOutcome outcome;
            EXPECT_EQ(RegistryOf(patient.Mended(&outcome).root), RegistryOf(before.root));
            EXPECT_FALSE(outcome.Pages(15).empty());
        }
    }
}

// Of two entries that come to have one name, the one that was not damaged keeps it.
TEST(CheckRepair, ANameOfItsOwnForEachNeighbour) {
    const std::u16string head = u"\\" + std::u16string(22, u'n'),
                         longName = head + std::u16string(400, u'x');
    B builder({}, Directory(u"", {File(head.substr(1) + u"x", Pattern(3)),
                                  File(longName.substr(1), Pattern(4)), File(u"Same", Pattern(5)),
                                  File(u"other", Pattern(6))}));
    const std::string names = Narrow(longName.substr(1)) + ".names";
    Edit(&builder, names + "+16 0 zero/" + names + "+34 478");
    Edit(&builder, "other.dirent+12 4 zero/other.dirent+20 44");  // and call it sAME
    Edit(&builder, "other.dirent+20 0x00410073 other.dirent+24 0x0045004D");
    Patient patient(builder.Finish());
    CheckOutcome outcome;
    const Reading after = patient.Mended(&outcome);
    EXPECT_EQ(after.At(head + u"x")->body, Pattern(3));
    EXPECT_EQ(after.At(u"\\Same")->body, Pattern(5));
    std::vector<size_t> sizes;
    for (const Item& found : after.root.children) sizes.push_back(found.body.size());
    std::sort(sizes.begin(), sizes.end());
    EXPECT_EQ(sizes, (std::vector<size_t>{3, 4, 5, 6}));
}

// A repair that is killed anywhere has lost nothing that a whole one keeps.
TEST(CheckRepair, AKilledRepairIsFinishedByTheNext) {
    for (const bool foreign : {false, true}) {
        B builder({512, foreign}, SmallTree());
        const Content before = ContentOf(ReadContainer(builder.Finish()).root);
        ShareId(builder, u"\\d", u"\\long");
        // Without page 0 the byte order is not told.
        Edit(&builder, foreign ? "add 34" : "add 34 page.0+0:16 77");
        Edit(&builder, "paged.stream.2+24 9");
        Patient patient(builder.Finish());
        const std::vector<Bytes> images = patient.Repaired();
        EXPECT_GT(images.size(), 20u);
        for (size_t i = 0; i < images.size() && !testing::Test::HasFailure(); ++i) {
            SCOPED_TRACE("after write " + std::to_string(i));
            patient.Put(images[i]);
            EXPECT_EQ(patient.Check(kRepair).status, 0);
            EXPECT_EQ(ContentOf(patient.ReadSound().root), before);
        }
    }
}

TEST(CheckRepair, AFailingCallEndsTheRunWithItsError) {
    B builder({}, SmallTree());
    Edit(&builder, "small.head+28 77 add 34");
    Patient patient(builder.Finish());
    support::WithEveryFailure(support::Failing::FileCall, [&](support::Failure& failure) {
        patient.Put(builder.Finish());
        const storage::Status status =
            failure.During([&] { return patient.Check(kRepair).status; });
        EXPECT_EQ(status, failure.Hit() ? static_cast<storage::Status>(failure.kError) : 0);
        EXPECT_EQ(patient.Check(kRepair).status, 0);
        patient.ExpectPromisesKept();
    });
}

TEST(CheckRepair, CutsAPartialPageInAFileThatMayBeWritten) {
    Form form;
    form.trailing = Bytes(100, 9);
    B builder(form, SmallTree());
    const support::TempDir dir;
    support::WriteBytes(dir / "c", builder.Finish());
    const std::string found = "8:" + std::to_string(builder.PageCount()) + " ";
    {
        const support::ReadOnlyScope scope(dir / "c");
        EXPECT_EQ(CheckContainer(dir / "c", kDeepCheck).Findings(), found);
        EXPECT_EQ(CheckContainer(dir / "c", kRepair).status, storage::kReadOnly);
    }
    EXPECT_EQ(support::ReadBytes(dir / "c"), builder.Finish());
    EXPECT_EQ(CheckContainer(dir / "c", kRepair).Findings(), found);
    EXPECT_EQ(support::ReadBytes(dir / "c").size(), builder.PageCount() * 512u);
}

TEST(CheckRepair, PageZeroIsFoundAgainThroughPageOneAndTheMapThroughThePages) {
    for (const uint32_t pageSize : {256u, 512u, 8192u}) {
        Form form{pageSize};
        form.inFileLog = pageSize == 512;
        const Bytes sound = B(form, RichTree(pageSize)).Finish();
        Bytes bytes = sound;
        std::fill_n(bytes.begin(), pageSize, uint8_t{0});
        Patient patient(bytes);
        EXPECT_EQ(patient.Check(kRepair).status, 0);
        EXPECT_TRUE(WithoutCounter(patient.Get()) == WithoutCounter(sound)) << pageSize;
        patient.ExpectPromisesKept();
    }
}

TEST(CheckRepair, WhatIsNoContainerIsRefusedUnchanged) {
    // A root that is gone cannot be made again.
    B builder({}, SmallTree());
    std::memset(builder.Page(2), 33, 512);
    for (const Bytes& bytes :
         {Bytes(), Bytes(100, 1), Bytes(5000, 0), Pattern(5000), builder.Finish()}) {
        Patient patient(bytes);
        const CheckOutcome outcome = patient.Check(kRepair);
        EXPECT_EQ(outcome.status, storage::kNotContainer);
        EXPECT_EQ(outcome.Pages(15), bytes == builder.Finish() ? Pages{1} : Pages());
        EXPECT_EQ(patient.Get(), bytes);
    }
    const support::TempDir dir;
    EXPECT_EQ(CheckContainer(dir / "none", kDeepCheck).status, 2);
    EXPECT_EQ(
        storage::StorageCheckAndRepair(nullptr, nullptr, 3, nullptr, nullptr, nullptr, nullptr),
        storage::kInvalid);
}

TEST(CheckRepair, CanBeCancelledAtEachPass) {
    const Bytes bytes = B({}, SmallTree()).Finish();
    for (const uint32_t code : {1u, 2u, 3u, 4u}) {
        Patient patient(bytes);
        EXPECT_EQ(patient.Check(kRepair, code).status, storage::kCancelled);
        EXPECT_TRUE(patient.Get() == bytes);
    }
}

}  // namespace
