// SPDX-License-Identifier: MIT
// Check and repair: what is found, told and mended, case by case.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/support/EveryFailure.h"
#include "tests/support/MemoryFiles.h"
#include "tests/support/ReadOnlyScope.h"

namespace {

using namespace support::container;
using support::Bytes;
using Pages = std::vector<uint32_t>;
using B = Builder;

// The same but for the counter that tells others of a change.
bool SameButCounter(Bytes a, Bytes b, uint32_t pageSize = 512) {
    for (Bytes* bytes : {&a, &b}) Put32(bytes->data() + pageSize, 156, 0);
    return a == b;
}

Form Sized(uint32_t pageSize, bool foreign = false) {
    Form form;
    form.pageSize = pageSize;
    form.foreign = foreign;
    return form;
}

Item SmallTree() {
    return Directory(u"",
                     {Directory(u"d", {File(u"in", Pattern(20))}), File(u"long", Pattern(480 * 30)),
                      File(u"paged", Pattern(480 * 5)), File(std::u16string(100, u'n'), Pattern(3)),
                      File(u"small", Pattern(40)), File(u"one"), File(u"two"), File(u"three"),
                      File(u"many", Pattern(480 * 2))});
}

Pages Sorted(Pages pages) {
    std::sort(pages.begin(), pages.end());
    return pages;
}

// A container in files of memory, one run after another.
class Patient {
  public:
    explicit Patient(const Bytes& bytes) { memory_.Put(path_, bytes); }

    CheckOutcome Run(uint32_t flags, uint32_t cancelAtCode = 0) {
        return CheckContainer(path_, flags, cancelAtCode);
    }
    CheckOutcome Check() { return Run(kDeepCheck); }
    CheckOutcome Repair() { return Run(kRepair); }
    Bytes Contents() { return memory_.Get(path_); }
    Reading Read() { return ReadContainer(Contents()); }
    const std::filesystem::path& Path() const { return path_; }
    support::MemoryFiles& Files() { return memory_; }

    void ExpectMended() {
        for (const std::string& broken : BrokenPromises(path_, [this] { return Contents(); }))
            ADD_FAILURE() << broken;
    }
    // A check tells what a repair mends, and changes nothing; the container after the repair, which
    // has kept its promise.
    Reading Mended(CheckOutcome* outcome) {
        const Bytes damaged = Contents();
        const CheckOutcome check = Check();
        EXPECT_EQ(check.status, 0);
        EXPECT_FALSE(check.FoundNothing());
        EXPECT_TRUE(Contents() == damaged);
        *outcome = Repair();
        EXPECT_EQ(outcome->status, 0);
        EXPECT_EQ(outcome->Findings(), check.Findings());
        Reading after = Read();
        EXPECT_EQ(after.wrong, "");
        ExpectMended();
        return after;
    }

  private:
    support::TempDir dir_;
    const std::filesystem::path path_ = dir_ / "c.dat";
    support::MemoryFiles memory_;
};

TEST(CheckRepair, SoundContainersHaveNoFindingsAndStayAsTheyAre) {
    for (const uint32_t pageSize : {256u, 512u, 4096u, 65536u}) {
        for (const bool foreign : {false, true}) {
            Form form = Sized(pageSize, foreign);
            form.freePages = 5;
            B builder(form, RichTree(pageSize));
            // A freed page that kept its header is left alone.
            const uint32_t stale = builder.AddPage(33);
            std::fill_n(builder.Page(stale) + 32, pageSize - 32, uint8_t{7});
            builder.SetSlot(stale, 0);
            const Bytes bytes = builder.Finish();
            for (const uint32_t flags : {3u, 1u, 2u, 0u}) {
                Patient patient(bytes);
                const CheckOutcome outcome = patient.Run(flags);
                EXPECT_EQ(outcome.status, 0);
                EXPECT_TRUE(outcome.FoundNothing())
                    << pageSize << foreign << " " << outcome.Findings();
                EXPECT_TRUE(patient.Contents() == bytes) << pageSize << foreign << flags;
                EXPECT_EQ(outcome.Pages(1).size(), builder.PageCount());
                EXPECT_EQ(outcome.Pages(2).size(), builder.PageCount() - 1);
                EXPECT_EQ(outcome.events.front().clean, 255);
                // A check never writes, and says so.
                EXPECT_EQ(outcome.events.back().clean, (flags & 1) != 0 ? 255 : 0);
            }
        }
    }
}

// What is told with each code, where that is known.
struct Told {
    std::optional<Pages> wrong{}, lost{}, entries{};
    std::string name{};
};
struct Case {
    const char* what;
    std::function<Told(B&)> damage;
    std::vector<std::u16string> lost{};
};

void RunCase(const Case& one) {
    SCOPED_TRACE(one.what);
    B builder(Sized(512), SmallTree());
    const Reading before = ReadContainer(builder.Finish());
    ASSERT_EQ(before.wrong, "");
    const Told told = one.damage(builder);
    Patient patient(builder.Finish());
    CheckOutcome outcome;
    const Reading after = patient.Mended(&outcome);
    const std::pair<uint32_t, const std::optional<Pages>*> codes[] = {
        {8, &told.wrong}, {9, &told.lost}, {15, &told.entries}};
    for (const auto& [code, pages] : codes)
        if (pages->has_value()) {
            EXPECT_EQ(outcome.Pages(code), Sorted(**pages)) << code;
        }
    if (!told.name.empty()) {
        EXPECT_EQ(outcome.name, ToUnits(told.name));
    }
    for (const std::u16string path : {u"\\d", u"\\d\\in", u"\\long", u"\\paged", u"\\small"}) {
        const bool lost = std::count(one.lost.begin(), one.lost.end(), path) != 0;
        const Item* found = after.At(path);
        EXPECT_EQ(found == nullptr || found->body != before.At(path)->body, lost) << Narrow(path);
    }
}

Told BadEndOffset(B& b, uint16_t end) {
    Put16(b.Page(b.At(u"\\paged").headerPage), 32, end);
    return {.lost = b.At(u"\\paged").streamPages};
}

const Case kCases[] = {
    {"an entry that leads nowhere",
     [](B& b) -> Told {
         Put32(b.Entry(u"\\small"), 4, 0x7FFFFFFF);
         const Place& place = b.At(u"\\small");
         return {{{place.headerPage}}, {{place.headerPage}}, {{place.entryPage}}, "small"};
     },
     {u"\\small"}},
    {"a lost directory takes all below it",
     [](B& b) -> Told {
         Put16(b.Page(b.At(u"\\d").headerPage), 0, 34);
         return {.lost = {{b.At(u"\\d").headerPage, b.At(u"\\d").entryPages[0],
                           b.At(u"\\d\\in").headerPage}},
                 .name = "d"};
     },
     {u"\\d", u"\\d\\in"}},
    {"a parent id of somebody else",
     [](B& b) -> Told {
         Put32(b.Page(b.At(u"\\small").headerPage), 28, 77);
         return {.wrong = {{b.At(u"\\small").headerPage}}};
     }},
    {"a page in use that nothing refers to",
     [](B& b) -> Told {
         b.AddPage(34);
         return {.wrong = Pages(), .lost = {{b.PageCount() - 1}}};
     }},
    {"two pages that refer only to one another",
     [](B& b) -> Told {
         const uint32_t one = b.AddPage(34), two = b.AddPage(34);
         for (const auto& [page, other] : {std::pair{one, two}, std::pair{two, one}}) {
             Put32(b.Page(page), 12, other);
             Put32(b.Page(page), 16, other);
         }
         return {.lost = {{one, two}}};
     }},
    {"a chain is mended by its index, both ends of the link",
     [](B& b) -> Told {
         const Pages& pages = b.At(u"\\long").streamPages;
         Put32(b.Page(pages[9]), 16, 3);
         return {.wrong = {{pages[9], pages[10]}}, .lost = Pages()};
     }},
    {"a number twice throws out the index, and the chain serves",
     [](B& b) -> Told {
         const uint32_t page = b.At(u"\\long").indexPages[0];
         Put32(b.Page(page), 32 + 4 * 3, Get32(b.Page(page), 32 + 4 * 4));
         return {.wrong = {{b.At(u"\\long").headerPage, page}}, .lost = {{page}}};
     }},
    {"a wrong level follows from the place",
     [](B& b) -> Told {
         Put32(b.Page(b.At(u"\\paged").streamPages[2]), 24, 9);
         return {.wrong = {{b.At(u"\\paged").streamPages[2]}}};
     }},
    {"a reference to a list that does not list the page",
     [](B& b) -> Told {
         Put32(b.Page(b.At(u"\\paged").streamPages[0]), 8, b.At(u"\\long").indexPages[0]);
         return {.wrong = {{b.At(u"\\paged").streamPages[0]}}};
     }},
    {"a name that says it is longer than its pages",
     [](B& b) -> Told {
         Put32(b.Entry(u"\\small"), 12, 400);
         std::memset(b.Entry(u"\\small") + 20 + 10, 0, 34);
         return {.entries = {{b.At(u"\\small").entryPage}}};
     }},
    {"numbers of page 1, and the mark of damage",
     [](B& b) -> Told {
         Put16(b.Page(1), 160, 5);
         for (const auto& [at, value] : {std::pair(152, 1), {240, 3}, {244, 3}})
             Put32(b.Page(1), static_cast<size_t>(at), static_cast<uint32_t>(value));
         return {{{1}}, Pages(), Pages()};
     }},
    {"a page in use that the map has for free, and one of another kind",
     [](B& b) -> Told {
         b.SetSlot(b.At(u"\\small").headerPage, 0);
         b.SetSlot(b.At(u"\\paged").streamPages[2], 33);
         return {{{0}}, Pages(), Pages()};
     }},
    {"sizes of records",
     [](B& b) -> Told {
         Put16(b.Record(u"", DirectoryRec), 2, 500);
         Put16(b.Record(u"\\d", DirectoryRec), 2, 13);
         Put16(b.Record(u"\\long", DataRec), 2, 0);
         Put16(b.Record(u"\\small", DataRec), 2, 20);
         Put16(b.Record(u"\\d\\in", DataRec), 2, 4000);
         Pages pages = {2};
         for (const char16_t* path : {u"\\d", u"\\long", u"\\small", u"\\d\\in"})
             pages.push_back(b.At(path).headerPage);
         return {.wrong = pages};
     }},
    {"the root's place",
     [](B& b) -> Told {
         Put32(b.Page(1), 172, 9);
         Put32(b.Page(1), 176, 77);
         Put16(b.Page(2), 0, 33);
         for (const size_t at : {4, 12, 24}) Put32(b.Page(2), at, 9);
         return {.entries = {{1}}};
     }},
    {"names that no path leads to",
     [](B& b) -> Told {
         Put32(b.Entry(u"\\small"), 12, 8);  // with zeros at its end
         for (const char16_t* name : {u"\\one", u"\\two", u"\\three"}) Put32(b.Entry(name), 12, 0);
         std::memset(b.Entry(u"\\one") + 20, 0, 44);
         Put16(b.Entry(u"\\two"), 22, 0);
         Put16(b.Entry(u"\\three"), 22, '\\');
         return {.wrong = Pages(), .lost = Pages()};
     }},
    {"a size that nothing is stored for, in pages and without",
     [](B& b) -> Told {
         for (const char16_t* path : {u"\\one", u"\\many"})
             Put32(b.Page(b.At(path).headerPage), 76, 0x40000000);
         return {.wrong = {{b.At(u"\\one").headerPage, b.At(u"\\many").headerPage}}};
     }},
    {"a map that is gone",
     [](B& b) -> Told {
         for (uint32_t page = 2; page < b.PageCount(); ++page) b.SetSlot(page, 0);
         return {{{0}}, Pages(), Pages()};
     }},
    {"two references in one page keep the first",
     [](B& b) -> Told {
         const Place& place = b.At(u"\\d");
         uint8_t* page = b.Page(place.headerPage);
         const uint32_t end = Get16(page, 32);
         std::memcpy(page + end, b.Record(u"\\d", DirectoryRec), 12);
         Put16(page, 32, end + 12);
         return {.wrong = {{place.headerPage, place.entryPages[0]}}};
     }},
    // An end offset that cannot be makes the object anew.
    {"513", [](B& b) { return BadEndOffset(b, 513); }, {u"\\paged"}},
    {"0", [](B& b) { return BadEndOffset(b, 0); }, {u"\\paged"}},
    {"35", [](B& b) { return BadEndOffset(b, 35); }, {u"\\paged"}},
    {"60000", [](B& b) { return BadEndOffset(b, 60000); }, {u"\\paged"}},
};

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
        B builder(Sized(512), SmallTree());
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
    B builder(Sized(512), Directory(u"", {File(head.substr(1) + u"x", Pattern(3)),
                                          File(longName.substr(1), Pattern(4)),
                                          File(u"Same", Pattern(5)), File(u"other", Pattern(6))}));
    uint8_t* page = builder.Page(builder.At(longName).namePages[0]);
    Put32(page, 16, 0);
    std::memset(page + 34, 0, 478);
    uint8_t* entry = builder.Entry(u"\\other");
    Put32(entry, 12, 4);
    std::memset(entry + 20, 0, 44);
    for (const uint32_t i : {0u, 1u, 2u, 3u}) Put16(entry, 20 + 2 * i, u"sAME"[i]);
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
        B builder(Sized(512, foreign), SmallTree());
        const Content before = ContentOf(ReadContainer(builder.Finish()).root);
        ShareId(builder, u"\\d", u"\\long");
        Put32(builder.Page(builder.At(u"\\paged").streamPages[2]), 24, 9);
        // Without page 0 the byte order is not told.
        if (!foreign) Put16(builder.Page(0), 0, 77);
        builder.AddPage(34);
        Patient patient(builder.Finish());
        std::vector<Bytes> images;
        {
            const support::MemoryFiles::Recording recording(patient.Files());
            EXPECT_EQ(patient.Repair().status, 0);
            for (size_t i = 0; i <= recording.Changes().size(); ++i)
                images.push_back(recording.Image(patient.Path(), i));
        }
        EXPECT_GT(images.size(), 20u);
        for (size_t i = 0; i < images.size() && !testing::Test::HasFailure(); ++i) {
            SCOPED_TRACE("after write " + std::to_string(i));
            patient.Files().Put(patient.Path(), images[i]);
            EXPECT_EQ(patient.Repair().status, 0);
            EXPECT_EQ(ContentOf(ReadSound(patient.Path(), patient.Contents()).root), before);
        }
    }
}

TEST(CheckRepair, AFailingCallEndsTheRunWithItsError) {
    B builder(Sized(512), SmallTree());
    Put32(builder.Page(builder.At(u"\\small").headerPage), 28, 77);
    builder.AddPage(34);
    Patient patient(builder.Finish());
    support::WithEveryFailure(support::Failing::FileCall, [&](support::Failure& failure) {
        patient.Files().Put(patient.Path(), builder.Finish());
        const storage::Status status = failure.During([&] { return patient.Repair().status; });
        EXPECT_EQ(status, failure.Hit() ? static_cast<storage::Status>(failure.kError) : 0);
        EXPECT_EQ(patient.Repair().status, 0);
        patient.ExpectMended();
    });
}

TEST(CheckRepair, CutsAPartialPageInAFileThatMayBeWritten) {
    Form form = Sized(512);
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
        Form form = Sized(pageSize);
        form.inFileLog = pageSize == 512;
        const Bytes sound = B(form, RichTree(pageSize)).Finish();
        Bytes bytes = sound;
        std::fill_n(bytes.begin(), pageSize, uint8_t{0});
        Patient patient(bytes);
        EXPECT_EQ(patient.Repair().status, 0);
        EXPECT_TRUE(SameButCounter(patient.Contents(), sound, pageSize)) << pageSize;
        patient.ExpectMended();
    }
}

TEST(CheckRepair, WhatIsNoContainerIsRefusedUnchanged) {
    // A root that is gone cannot be made again.
    B builder(Sized(512), SmallTree());
    std::memset(builder.Page(2), 33, 512);
    for (const Bytes& bytes :
         {Bytes(), Bytes(100, 1), Bytes(5000, 0), Pattern(5000), builder.Finish()}) {
        Patient patient(bytes);
        const CheckOutcome outcome = patient.Repair();
        EXPECT_EQ(outcome.status, storage::kNotContainer);
        EXPECT_EQ(outcome.Pages(15), bytes == builder.Finish() ? Pages{1} : Pages());
        EXPECT_EQ(patient.Contents(), bytes);
    }
    const support::TempDir dir;
    EXPECT_EQ(CheckContainer(dir / "none", kDeepCheck).status, 2);
    EXPECT_EQ(
        storage::StorageCheckAndRepair(nullptr, nullptr, 3, nullptr, nullptr, nullptr, nullptr),
        storage::kInvalid);
}

TEST(CheckRepair, CanBeCancelledAtEachPass) {
    const Bytes bytes = B(Sized(512), SmallTree()).Finish();
    for (const uint32_t code : {1u, 2u, 3u, 4u}) {
        Patient patient(bytes);
        EXPECT_EQ(patient.Run(kRepair, code).status, storage::kCancelled);
        EXPECT_TRUE(patient.Contents() == bytes);
    }
}

}  // namespace
