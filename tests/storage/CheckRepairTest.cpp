// SPDX-License-Identifier: MIT
// Check and repair: what is found, told and mended, case by case.
#include <gtest/gtest.h>

#include <algorithm>
#include <span>

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

// The first section of repair.txt is the tree, and each of the others a case.
const std::vector<support::Section>& Sections() {
    static const auto sections = SectionsIn("storage/repair.txt");
    return sections;
}

Item SmallTree() {
    return Tree(Sections()[0]);
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
            for (const uint32_t pass : {1u, 2u, 3u, 4u}) {
                Patient patient(bytes);
                EXPECT_EQ(patient.Check(kRepair, pass).status, storage::kCancelled);
                EXPECT_TRUE(patient.Get() == bytes);
            }
        }
    }
}

void RunCase(const support::Section& one) {
    SCOPED_TRACE(one.name);
    B builder({}, SmallTree());
    const Reading before = ReadContainer(builder.Finish());
    std::map<std::string, std::string> told;
    for (const auto& [number, line] : one.lines) {
        const std::string word = line.substr(0, line.find(' '));
        told[word] += line.substr(word.size()) + " ";
    }
    Edit(&builder, told["edit"]);
    Patient patient(builder.Finish());
    CheckOutcome outcome;
    const Reading after = patient.Mended(&outcome);
    for (const auto& [word, what] : told) {
        const uint32_t code = word == "8" ? 8 : word == "9" ? 9 : word == "15" ? 15 : 0;
        if (code != 0) {
            EXPECT_EQ(outcome.Pages(code), PagesAt(&builder, what)) << code;
        } else if (word == "name") {
            EXPECT_EQ(" " + Narrow(outcome.name) + " ", what);
        }
    }
    for (const std::u16string path :
         {u"\\coded", u"\\d", u"\\d\\in", u"\\long", u"\\paged", u"\\small"}) {
        const bool gone = told["gone"].find(" " + Narrow(path) + " ") != std::string::npos;
        const Item* found = after.At(path);
        EXPECT_EQ(found == nullptr || found->body != before.At(path)->body, gone) << Narrow(path);
    }
}

TEST(CheckRepair, MendsWhatItFinds) {
    EXPECT_GT(Sections().size(), 20u);
    for (const support::Section& one : std::span(Sections()).subspan(1)) RunCase(one);
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
    B builder({}, Tree("<n*22>x *3 ; <n*22><x*400> *4 ; Same *5 ; other *6"));
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

}  // namespace
