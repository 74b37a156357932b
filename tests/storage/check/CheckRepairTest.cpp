// Check and repair: what is found, told and mended, case by case.
#include <functional>

#include "tests/storage/check/CheckHarness.h"
#include "tests/support/FaultFile.h"
#include "tests/support/MemoryFiles.h"
#include "tests/support/ReadOnlyScope.h"
#include "tests/support/RecordingFile.h"

namespace {

namespace container = support::container;
using check::Outcome;
using check::Patient;
using container::Builder;
using container::Directory;
using container::File;
using container::Form;
using container::Get16;
using container::Get32;
using container::Put16;
using container::Put32;
using support::Bytes;
using Pages = std::vector<uint32_t>;

Form Sized(uint32_t pageSize, bool foreign = false) {
    Form form;
    form.pageSize = pageSize;
    form.foreign = foreign;
    return form;
}

container::Item SmallTree() {
    return Directory(u"", {Directory(u"d", {File(u"in", container::Pattern(20))}),
                           File(u"long", container::Pattern(480 * 30)),
                           File(u"paged", container::Pattern(480 * 5)),
                           File(std::u16string(100, u'n'), container::Pattern(3)),
                           File(u"small", container::Pattern(40)), File(u"one"), File(u"two"),
                           File(u"three"), File(u"many", container::Pattern(480 * 2))});
}

uint8_t* RecordAt(Builder& builder, const char16_t* path, uint16_t type) {
    uint8_t* page = builder.Page(builder.At(path).headerPage);
    for (uint32_t at = 36; at < Get16(page, 32); at += Get16(page, at + 2))
        if (Get16(page, at) == type) return page + at;
    ADD_FAILURE() << "no record";
    return page + 36;
}

TEST(CheckRepair, SoundContainersHaveNoFindingsAndStayAsTheyAre) {
    for (const uint32_t pageSize : {256u, 512u, 4096u, 65536u}) {
        for (const bool foreign : {false, true}) {
            Form form = Sized(pageSize, foreign);
            form.freePages = 5;
            Builder builder(form, container::RichTree(pageSize));
            const Bytes bytes = builder.Finish();
            for (const uint32_t flags : {3u, 1u, 2u, 0u}) {
                Patient patient(bytes);
                const Outcome outcome = patient.Run(flags);
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

// Damage, the findings that a repair is to tell, and what must be left of the tree.
struct Case {
    const char* what;
    std::function<void(Builder&)> damage;
    std::function<void(const Builder&, const Outcome&)> expect;
    std::vector<const char16_t*> lost;
};

void RunCase(const Case& one) {
    SCOPED_TRACE(one.what);
    Builder builder(Sized(512), SmallTree());
    const container::Reading before = container::ReadContainer(builder.Finish());
    ASSERT_TRUE(before.Sound()) << before.Report();
    one.damage(builder);
    const Bytes damaged = builder.Finish();
    Patient patient(damaged);
    const Outcome check = patient.Check();
    EXPECT_EQ(check.status, 0);
    EXPECT_TRUE(patient.Contents() == damaged);
    const Outcome outcome = patient.Repair();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_FALSE(outcome.FoundNothing());
    EXPECT_EQ(check.Findings(), outcome.Findings()) << "a check tells what a repair mends";
    one.expect(builder, outcome);
    const container::Reading after = patient.Read();
    EXPECT_TRUE(after.Sound()) << after.Report();
    for (const char16_t* path : {u"\\d", u"\\d\\in", u"\\long", u"\\paged", u"\\small"}) {
        const bool lost = std::any_of(one.lost.begin(), one.lost.end(), [&](const char16_t* item) {
            return std::u16string(path) == item;
        });
        const container::Found* found = after.At(path);
        EXPECT_EQ(found == nullptr, lost)
            << platform::ToUtf8(platform::WString(path, path + std::u16string(path).size()));
        if (found != nullptr) {
            EXPECT_EQ(found->body, before.At(path)->body);
        }
    }
    patient.ExpectMended();
}

TEST(CheckRepair, MendsWhatItFinds) {
    const Case cases[] = {
        {"an entry that leads nowhere",
         [](Builder& b) {
             const auto& place = b.At(u"\\small");
             Put32(b.Page(place.entryPage), place.entryOffset + 4, 0x7FFFFFFF);
         },
         [](const Builder& b, const Outcome& o) {
             EXPECT_EQ(o.Pages(15), Pages{b.At(u"\\small").entryPage});
             EXPECT_EQ(o.name, u"small");
             EXPECT_EQ(o.Pages(8), Pages{b.At(u"\\small").headerPage}) << "its way back";
             EXPECT_EQ(o.Pages(9), Pages{b.At(u"\\small").headerPage});
         },
         {u"\\small"}},
        {"a lost directory takes all below it",
         [](Builder& b) { Put16(b.Page(b.At(u"\\d").headerPage), 0, 34); },
         [](const Builder& b, const Outcome& o) {
             EXPECT_EQ(o.name, u"d");
             EXPECT_EQ(o.Pages(9), (Pages{b.At(u"\\d").headerPage, b.At(u"\\d").entryPages[0],
                                          b.At(u"\\d\\in").headerPage}));
         },
         {u"\\d", u"\\d\\in"}},
        {"a parent id of somebody else",
         [](Builder& b) { Put32(b.Page(b.At(u"\\small").headerPage), 28, 77); },
         [](const Builder& b, const Outcome& o) {
             EXPECT_EQ(o.Pages(8), Pages{b.At(u"\\small").headerPage});
         },
         {}},
        {"a page in use that nothing refers to",
         [](Builder& b) { b.AddPage(34); },
         [](const Builder& b, const Outcome& o) {
             EXPECT_EQ(o.Pages(9), Pages{b.PageCount() - 1});
             EXPECT_EQ(o.Pages(8), Pages());
         },
         {}},
        {"two pages that refer only to one another",
         [](Builder& b) {
             const uint32_t one = b.AddPage(34), two = b.AddPage(34);
             for (const auto& [page, other] : {std::pair{one, two}, std::pair{two, one}}) {
                 Put32(b.Page(page), 12, other);
                 Put32(b.Page(page), 16, other);
             }
         },
         [](const Builder& b, const Outcome& o) { EXPECT_EQ(o.Pages(9).size(), 2u); },
         {}},
        {"a chain is mended by its index",
         [](Builder& b) { Put32(b.Page(b.At(u"\\long").streamPages[9]), 16, 3); },
         [](const Builder& b, const Outcome& o) {
             const Pages& pages = b.At(u"\\long").streamPages;
             EXPECT_EQ(o.Pages(8), (Pages{pages[9], pages[10]})) << "both ends of the link";
             EXPECT_EQ(o.Pages(9), Pages());
         },
         {}},
        {"a number twice throws out the index, and the chain serves",
         [](Builder& b) {
             uint8_t* index = b.Page(b.At(u"\\long").indexPages[0]);
             Put32(index, 32 + 4 * 3, Get32(index, 32 + 4 * 4));
         },
         [](const Builder& b, const Outcome& o) {
             const auto& place = b.At(u"\\long");
             EXPECT_EQ(o.Pages(8), (Pages{place.headerPage, place.indexPages[0]}));
             EXPECT_EQ(o.Pages(9), Pages{place.indexPages[0]});
         },
         {}},
        {"a wrong level follows from the place",
         [](Builder& b) { Put32(b.Page(b.At(u"\\paged").streamPages[2]), 24, 9); },
         [](const Builder& b, const Outcome& o) {
             EXPECT_EQ(o.Pages(8), Pages{b.At(u"\\paged").streamPages[2]});
         },
         {}},
        {"a reference to a list that does not list the page",
         [](Builder& b) {
             Put32(b.Page(b.At(u"\\paged").streamPages[0]), 8, b.At(u"\\long").indexPages[0]);
         },
         [](const Builder& b, const Outcome& o) {
             EXPECT_EQ(o.Pages(8), Pages{b.At(u"\\paged").streamPages[0]});
         },
         {}},
        {"a name that says it is longer than its pages",
         [](Builder& b) {
             const auto& place = b.At(u"\\small");
             Put32(b.Page(place.entryPage), place.entryOffset + 12, 400);
             std::memset(b.Page(place.entryPage) + place.entryOffset + 20 + 10, 0, 34);
         },
         [](const Builder& b, const Outcome& o) {
             EXPECT_EQ(o.Pages(15), Pages{b.At(u"\\small").entryPage});
         },
         {}},
        {"numbers of page 1, and the mark of damage",
         [](Builder& b) {
             Put16(b.Page(1), 160, 5);
             Put32(b.Page(1), 152, 1);
             Put32(b.Page(1), 240, 3);
             Put32(b.Page(1), 244, 3);
         },
         [](const Builder&, const Outcome& o) { EXPECT_EQ(o.Findings(), "8:1 "); },
         {}},
        {"a page in use that the map has for free, and one of another kind",
         [](Builder& b) {
             b.SetSlot(b.At(u"\\small").headerPage, 0);
             b.SetSlot(b.At(u"\\paged").streamPages[2], 33);
         },
         [](const Builder&, const Outcome& o) { EXPECT_EQ(o.Findings(), "8:0 "); },
         {}},
        {"sizes of records",
         [](Builder& b) {
             Put16(RecordAt(b, u"", container::DirectoryRec), 2, 500);
             Put16(RecordAt(b, u"\\d", container::DirectoryRec), 2, 13);
             Put16(RecordAt(b, u"\\long", container::DataRec), 2, 0);
             Put16(RecordAt(b, u"\\small", container::DataRec), 2, 20);
             Put16(RecordAt(b, u"\\d\\in", container::DataRec), 2, 4000);
         },
         [](const Builder& b, const Outcome& o) {
             Pages pages = {2};
             for (const char16_t* path : {u"\\d", u"\\long", u"\\small", u"\\d\\in"})
                 pages.push_back(b.At(path).headerPage);
             std::sort(pages.begin(), pages.end());
             EXPECT_EQ(o.Pages(8), pages);
         },
         {}},
        {"the root's place",
         [](Builder& b) {
             Put32(b.Page(1), 172, 9);
             Put32(b.Page(1), 176, 77);
             Put16(b.Page(2), 0, 33);
             Put32(b.Page(2), 4, 9);
             Put32(b.Page(2), 12, 9);
             Put32(b.Page(2), 24, 9);
         },
         [](const Builder&, const Outcome& o) { EXPECT_EQ(o.Pages(15), Pages{1}); },
         {}},
        {"names that no path leads to",
         [](Builder& b) {
             const auto entryOf = [&b](const char16_t* path) {
                 const auto& place = b.At(path);
                 return b.Page(place.entryPage) + place.entryOffset;
             };
             Put32(entryOf(u"\\small"), 12, 8);  // with zeros at its end
             for (const char16_t* name : {u"\\one", u"\\two", u"\\three"})
                 Put32(entryOf(name), 12, 0);
             std::memset(entryOf(u"\\one") + 20, 0, 44);
             Put16(entryOf(u"\\two"), 22, 0);
             Put16(entryOf(u"\\three"), 22, '\\');
         },
         [](const Builder& b, const Outcome& o) {
             EXPECT_EQ(o.Pages(15).size(), 6u);
             EXPECT_EQ(o.Pages(8), Pages());
             EXPECT_EQ(o.Pages(9), Pages());
             EXPECT_NE(b.PageCount(), 0u);
         },
         {}},
        {"a size that nothing is stored for, in pages and without",
         [](Builder& b) {
             for (const char16_t* path : {u"\\one", u"\\many"})
                 Put32(b.Page(b.At(path).headerPage), 76, 0x40000000);
         },
         [](const Builder& b, const Outcome& o) {
             Pages pages = {b.At(u"\\one").headerPage, b.At(u"\\many").headerPage};
             std::sort(pages.begin(), pages.end());
             EXPECT_EQ(o.Pages(8), pages);
         },
         {}},
    };
    for (const Case& one : cases) RunCase(one);
}

// Every page of one object said to be another's, with its entry.
void ShareId(Builder& builder, const char16_t* path, const char16_t* other) {
    const container::Place& place = builder.At(path);
    const uint32_t id = builder.At(other).fileId;
    Put32(builder.Page(place.entryPage), place.entryOffset, id);
    for (const Pages& pages : {place.headerPages, place.entryPages, place.namePages,
                               place.streamPages, place.indexPages})
        for (const uint32_t page : pages) Put32(builder.Page(page), 20, id);
}

TEST(CheckRepair, ObjectsThatShareAnIdAllStay) {
    const std::u16string longName = u"\\" + std::u16string(100, u'n');
    for (const std::u16string& path : {std::u16string(u"\\d"), std::u16string(u"\\long"),
                                       std::u16string(u"\\small"), longName}) {
        Builder builder(Sized(512), SmallTree());
        const container::Reading before = container::ReadContainer(builder.Finish());
        for (const char16_t* other : {u"\\paged", u""}) {
            ShareId(builder, path.c_str(), other);
            if (path == u"\\d")
                Put32(builder.Page(builder.At(u"\\d\\in").headerPage), 28,
                      builder.At(other).fileId);
            Patient patient(builder.Finish());
            EXPECT_FALSE(patient.Check().Pages(15).empty());
            EXPECT_EQ(patient.Repair().status, 0);
            const container::Reading after = patient.Read();
            EXPECT_TRUE(after.Sound()) << after.Report();
            EXPECT_EQ(container::RegistryOf(after.root), container::RegistryOf(before.root));
            patient.ExpectMended();
        }
    }
}

// Of two entries that come to have one name, the one that was not damaged keeps it.
TEST(CheckRepair, ANameOfItsOwnForEachNeighbour) {
    const std::u16string head(22, u'n');
    Builder builder(Sized(512),
                    Directory(u"", {File(head + u"x", container::Pattern(3)),
                                    File(head + std::u16string(400, u'x'), container::Pattern(4)),
                                    File(u"Same", container::Pattern(5)),
                                    File(u"other", container::Pattern(6))}));
    const auto& longer = builder.At(u"\\" + head + std::u16string(400, u'x'));
    Put32(builder.Page(longer.namePages[0]), 16, 0);
    std::memset(builder.Page(longer.namePages[0]) + 34, 0, 478);
    const auto& other = builder.At(u"\\other");
    uint8_t* entry = builder.Page(other.entryPage) + other.entryOffset;
    Put32(entry, 12, 4);
    std::memset(entry + 20, 0, 44);
    for (const uint32_t i : {0u, 1u, 2u, 3u}) Put16(entry, 20 + 2 * i, u"sAME"[i]);
    Patient patient(builder.Finish());
    const Outcome check = patient.Check();
    EXPECT_EQ(patient.Repair().Findings(), check.Findings());
    EXPECT_FALSE(check.FoundNothing());
    const container::Reading after = patient.Read();
    EXPECT_TRUE(after.Sound()) << after.Report();
    ASSERT_EQ(after.root.children.size(), 4u);
    EXPECT_EQ(after.At(u"\\" + head + u"x")->body, container::Pattern(3));
    EXPECT_EQ(after.At(u"\\Same")->body, container::Pattern(5));
    for (const uint32_t seed : {4u, 6u})
        EXPECT_TRUE(std::any_of(
            after.root.children.begin(), after.root.children.end(),
            [seed](const container::Found& f) { return f.body == container::Pattern(seed); }));
    patient.ExpectMended();
}

// A repair that is killed anywhere has lost nothing that a whole one keeps.
TEST(CheckRepair, AKilledRepairIsFinishedByTheNext) {
    for (const bool foreign : {false, true}) {
        Builder builder(Sized(512, foreign), SmallTree());
        const container::Content before =
            container::ContentOf(container::ReadContainer(builder.Finish()).root);
        ShareId(builder, u"\\d", u"\\long");
        Put32(builder.Page(builder.At(u"\\d\\in").headerPage), 28, builder.At(u"\\long").fileId);
        Put32(builder.Page(builder.At(u"\\paged").streamPages[2]), 24, 9);
        // Without page 0 the byte order is not told.
        if (!foreign) Put16(builder.Page(0), 0, 77);
        builder.AddPage(34);
        support::TempDir dir;
        const std::filesystem::path path = dir / "c.dat";
        support::MemoryFiles memory;
        memory.Put(path, builder.Finish());
        std::vector<Bytes> images;
        {
            support::RecordingFile recording;
            EXPECT_EQ(container::CheckContainer(path, container::kRepair).status, 0);
            for (size_t i = 0; i <= recording.Changes().size(); ++i)
                images.push_back(recording.Image(dir.File("c.dat"), i));
        }
        EXPECT_GT(images.size(), 20u);
        for (size_t i = 0; i < images.size(); ++i) {
            SCOPED_TRACE("after write " + std::to_string(i));
            memory.Put(path, images[i]);
            EXPECT_EQ(container::CheckContainer(path, container::kRepair).status, 0);
            const container::Reading after = container::ReadContainer(memory.Get(path));
            EXPECT_TRUE(after.Sound()) << after.Report();
            EXPECT_EQ(container::ContentOf(after.root), before);
            if (testing::Test::HasFailure()) return;
        }
    }
}

TEST(CheckRepair, AMapThatIsGoneIsBuiltFromThePages) {
    Builder builder(Sized(512), SmallTree());
    const Bytes sound = builder.Finish();
    for (uint32_t page = 2; page < builder.PageCount(); ++page) builder.SetSlot(page, 0);
    const Bytes damaged = builder.Finish();
    for (const uint32_t flags : {3u, 2u}) {
        Patient patient(damaged);
        const Outcome outcome = patient.Run(flags);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.Findings(), "8:0 ");
        EXPECT_TRUE(check::SameButCounter(patient.Contents(), flags == 2 ? sound : damaged));
    }
}

TEST(CheckRepair, AnEndOffsetThatCannotBeMakesTheObjectAnew) {
    for (const uint16_t end : {513, 0, 35, 60000}) {
        Builder builder(Sized(512), SmallTree());
        const uint32_t header = builder.At(u"\\paged").headerPage;
        Put16(builder.Page(header), 32, end);
        Patient patient(builder.Finish());
        const Outcome outcome = patient.Repair();
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.Pages(9), builder.At(u"\\paged").streamPages);
        const Bytes after = patient.Contents();
        EXPECT_EQ(Get16(after.data() + header * 512, 32), 84);
        EXPECT_EQ(Get16(after.data() + header * 512, 38), 48);
        EXPECT_EQ(patient.Read().At(u"\\paged")->size, 0u);
        patient.ExpectMended();
    }
}

TEST(CheckRepair, TwoReferencesInOnePageKeepTheFirst) {
    Builder builder(Sized(512), SmallTree());
    const auto& place = builder.At(u"\\d");
    uint8_t* page = builder.Page(place.headerPage);
    const uint32_t end = Get16(page, 32);
    uint8_t* record = RecordAt(builder, u"\\d", container::DirectoryRec);
    std::memcpy(page + end, record, 12);
    Put16(page, 32, end + 12);
    Patient patient(builder.Finish());
    const Outcome outcome = patient.Repair();
    EXPECT_EQ(outcome.Pages(8), (Pages{std::min(place.headerPage, place.entryPages[0]),
                                       std::max(place.headerPage, place.entryPages[0])}));
    EXPECT_EQ(Get16(patient.Contents().data() + place.headerPage * 512, 32), end);
    EXPECT_EQ(patient.Read().At(u"\\d\\in")->body, container::Pattern(20));
    patient.ExpectMended();
}

TEST(CheckRepair, AFreedPageThatKeptItsHeaderIsLeftAlone) {
    Builder builder(Sized(512), SmallTree());
    const uint32_t stale = builder.AddPage(33);
    for (uint32_t at = 32; at < 512; ++at) builder.Page(stale)[at] = static_cast<uint8_t>(at * 7);
    builder.SetSlot(stale, 0);
    const Bytes bytes = builder.Finish();
    for (const uint32_t flags : {3u, 2u}) {
        Patient patient(bytes);
        EXPECT_TRUE(patient.Run(flags).FoundNothing());
        EXPECT_TRUE(patient.Contents() == bytes);
    }
}

TEST(CheckRepair, CutsAPartialPageInAFileThatMayBeWritten) {
    Form form = Sized(512);
    form.trailing = Bytes(100, 9);
    Builder builder(form, SmallTree());
    const Bytes bytes = builder.Finish();
    Patient patient(bytes);
    const std::string found = "8:" + std::to_string(builder.PageCount()) + " ";
    {
        const support::ReadOnlyScope scope(patient.Path());
        EXPECT_EQ(patient.Check().Findings(), found);
        EXPECT_EQ(patient.Repair().status, storage::kReadOnly);
    }
    EXPECT_EQ(patient.Contents(), bytes);
    EXPECT_EQ(patient.Repair().Findings(), found);
    EXPECT_EQ(patient.Contents().size(), builder.PageCount() * 512u);
    patient.ExpectMended();
}

TEST(CheckRepair, PageZeroIsFoundAgainThroughPageOne) {
    for (const uint32_t pageSize : {256u, 512u, 8192u}) {
        Form form = Sized(pageSize);
        form.inFileLog = pageSize == 512;
        Builder builder(form, container::RichTree(pageSize));
        Bytes bytes = builder.Finish();
        const Bytes sound = bytes;
        std::fill_n(bytes.begin(), pageSize, uint8_t{0});
        Patient patient(bytes);
        EXPECT_EQ(patient.Repair().status, 0);
        EXPECT_TRUE(check::SameButCounter(patient.Contents(), sound, pageSize)) << pageSize;
        patient.ExpectMended();
    }
}

TEST(CheckRepair, WhatIsNoContainerIsRefusedUnchanged) {
    for (const Bytes& bytes : {Bytes(), Bytes(100, 1), Bytes(5000, 0), container::Pattern(5000)}) {
        Patient patient(bytes);
        EXPECT_EQ(patient.Repair().status, storage::kNotContainer);
        EXPECT_EQ(patient.Contents(), bytes);
    }
    // A root that is gone cannot be made again.
    Builder builder(Sized(512), SmallTree());
    std::memset(builder.Page(2), 33, 512);
    Patient patient(builder.Finish());
    const Outcome outcome = patient.Repair();
    EXPECT_EQ(outcome.status, storage::kNotContainer);
    EXPECT_EQ(outcome.Pages(15), Pages{1});
    EXPECT_EQ(patient.Contents(), builder.Finish());
    support::TempDir dir;
    EXPECT_EQ(storage::StorageCheckAndRepair(dir.File("none").c_str(), nullptr, 3, nullptr, nullptr,
                                             nullptr, nullptr),
              2);
    EXPECT_EQ(
        storage::StorageCheckAndRepair(nullptr, nullptr, 3, nullptr, nullptr, nullptr, nullptr),
        storage::kInvalid);
}

TEST(CheckRepair, CanBeCancelledAtEachPass) {
    Builder builder(Sized(512), SmallTree());
    const Bytes bytes = builder.Finish();
    for (const uint32_t code : {1u, 2u, 3u, 4u}) {
        Patient patient(bytes);
        EXPECT_EQ(patient.Run(2, code).status, storage::kCancelled);
        EXPECT_TRUE(patient.Contents() == bytes);
    }
}

TEST(CheckRepair, AFailingCallEndsTheRunWithItsError) {
    Builder builder(Sized(512), SmallTree());
    Put32(builder.Page(builder.At(u"\\small").headerPage), 28, 77);
    builder.AddPage(34);
    for (uint64_t call = 1;; ++call) {
        Patient patient(builder.Finish());
        Outcome outcome;
        bool hit = false;
        {
            support::FaultFile faults;
            faults.FailAny(call, platform::kErrorGenFailure);
            outcome = patient.Repair();
            hit = faults.Hits() != 0;
        }
        if (!hit) break;
        EXPECT_EQ(outcome.status, static_cast<storage::Status>(platform::kErrorGenFailure)) << call;
        EXPECT_EQ(patient.Repair().status, 0);
        patient.ExpectMended();
    }
}

TEST(CheckRepair, APendingLogIsReplayedByARepairOnly) {
    Form form = Sized(512);
    form.logPending = 1;
    Builder builder(form, SmallTree());
    const uint32_t header = builder.At(u"\\small").headerPage;
    container::LogPage page{32, header, 7, builder.PageBytes(header), {}};
    Put32(page.image.data(), 76, 33);  // another size of the file
    const Bytes log = container::Joined(container::SequentialLog(form, {7}, {page}));
    Patient patient(builder.Finish());
    support::WriteBytes(patient.Dir() / "c.log", log);
    EXPECT_TRUE(patient.Check().FoundNothing());
    EXPECT_TRUE(std::filesystem::exists(patient.Dir() / "c.log"));
    EXPECT_EQ(patient.Repair().status, 0);
    EXPECT_FALSE(std::filesystem::exists(patient.Dir() / "c.log"));
    EXPECT_EQ(patient.Read().At(u"\\small")->size, 33u);
    patient.ExpectMended();
}

}  // namespace
