// SPDX-License-Identifier: MIT
// Compaction of containers of all shapes: the file shrinks to the pages in use, all
// reads the same, whoever has something open goes on, and a failure leaves everything as it was.
#include <gtest/gtest.h>

#include <random>

#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"

namespace faults {
namespace {

using namespace support::container;
using support::Bytes;

// Nothing in the file is free.
void ExpectFull(const Reading& reading) {
    const uint32_t group = reading.pageSize / 2;
    const uint32_t mapPages = (reading.pageCount + group - 1) / group;
    EXPECT_EQ(reading.usedPages + mapPages + 1, reading.pageCount);
}

// A file before the others from `place` on.
void Fill(Item* root, size_t place, size_t number, size_t size) {
    const auto at = root->children.begin() + static_cast<std::ptrdiff_t>(place);
    Item& filler = *root->children.emplace(at);
    filler.name = Numbered(u"filler ", number);
    filler.body = Pattern(size);
}

struct Layout {
    uint32_t pageSize;
    bool foreign;
};

class Compaction : public testing::TestWithParam<Layout> {
  protected:
    Form FormOf(uint32_t freePages) const {
        Form form{GetParam().pageSize, GetParam().foreign};
        form.freePages = freePages;
        return form;
    }
    // A container of everything, in which pages are free all over; by seed 0 at its end only.
    Bytes Sparse(uint32_t seed) {
        std::mt19937 random(seed);
        Item root = RichTree(GetParam().pageSize);
        const size_t fillers = seed == 0 ? 0 : 40;
        for (size_t i = 0; i < fillers; ++i)
            Fill(&root, random() % root.children.size(), i, random() % 4000);
        container_.Put(Builder(FormOf(seed == 0 ? 5 : seed % 3), root).Finish());
        EngineStore store;
        EXPECT_EQ(store.Open(container_.Path()), storage::kOk);
        for (size_t i = 0; i < fillers; ++i)
            if (random() % 4 != 0) {
                EXPECT_EQ(store.Delete(Numbered(u"\\filler ", i)), storage::kOk);
            }
        EXPECT_EQ(store.Close(), storage::kOk);
        return container_.Get();
    }
    void ExpectCompact(const Content& before) {
        const Reading after = container_.ReadSound();
        EXPECT_EQ(ContentOf(after.root), before);
        ExpectFull(after);
    }

    // All reads as before, the container takes more, and at most pages are lost.
    void ExpectWhole(EngineStore& store, const Content& before) {
        Failures failures;
        for (const auto& [path, body] : store.ReadAll(&failures)) EXPECT_EQ(body, before.at(path));
        EXPECT_EQ(failures, Failures());
        EXPECT_EQ(store.Put(u"\\after", Pattern(5000)), storage::kOk);
        EXPECT_EQ(storage::StorageCompact(store, nullptr), storage::kOk);
        EXPECT_EQ(store.Close(), storage::kOk);
        const CheckOutcome check = container_.Check();
        EXPECT_TRUE(check.FoundOnlyLostPages()) << check.Findings();
        Content after = ContentOf(ReadContainer(container_.Get()).root);
        EXPECT_EQ(after.erase(u"\\after"), 1u);
        EXPECT_TRUE(after == before);
    }

    MemoryContainer container_;
};

TEST_P(Compaction, ShrinksToThePagesInUseAndChangesNothingElse) {
    for (uint32_t seed = 0; seed <= Rounds(6); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Sparse(seed);
        const Content before = ContentOf(container_.ReadSound().root);
        EngineStore store;
        ASSERT_EQ(store.Open(container_.Path()), storage::kOk);
        // Some of it is in memory when the pages move, and some is not.
        if (seed % 2 == 0) store.ReadAll();
        uint8_t done = 7;
        {
            // A file that is written to has a transaction, and nothing is done.
            EngineFile open(store, u"\\long");
            const Bytes& body = *before.at(u"\\long");
            ASSERT_EQ(open.Write(Bytes(body.begin(), body.begin() + 10)), storage::kOk);
            ASSERT_EQ(storage::StorageCompact(store.Container(), &done), storage::kOk);
            EXPECT_EQ(done, 0);
        }
        ASSERT_EQ(storage::StorageCompact(store.Container(), &done), storage::kOk);
        EXPECT_EQ(done, 255);
        ExpectCompact(before);
        Content after = store.ReadAll();
        for (const auto& [path, body] : after) EXPECT_EQ(body, before.at(path));
        EXPECT_EQ(store.Put(u"\\deep\\after", Pattern(3000)), storage::kOk);
        EXPECT_EQ(store.Close(), storage::kOk);
        container_.ReadSound();
    }
}

// A container of fixed size keeps its length; what was free in it is all behind the last page in
// use, from where it grows.
TEST_P(Compaction, OfAContainerWithItsLogInsideLeavesItsEndFree) {
    Form form = FormOf(0);
    form.inFileLog = 1;
    Item root = RichTree(form.pageSize);
    for (size_t i = 0; i < 30; ++i) Fill(&root, 0, i, form.pageSize * 3);
    Builder builder(form, root);
    builder.AddInFileLog({}, form.pageSize);  // past the next map page
    const Bytes bytes = builder.Finish();
    container_.Put(bytes);
    EngineStore store;
    ASSERT_EQ(store.Open(container_.Path()), storage::kOk);
    for (size_t i = 0; i < 30; i += 2)
        ASSERT_EQ(store.Delete(Numbered(u"\\filler ", i)), storage::kOk);
    Content before = store.ReadAll();
    for (size_t round = 0; round < 2; ++round) {
        uint8_t done = 0, corrupted = 1;
        ASSERT_EQ(storage::StorageCompact(store.Container(), &done), storage::kOk);
        EXPECT_EQ(done, 255);
        EXPECT_EQ(storage::StorageIsCorrupted(store.Container(), &corrupted), storage::kOk);
        EXPECT_EQ(corrupted, 0);
        EXPECT_EQ(store.ReadAll(), before);
        const std::u16string path = Numbered(u"\\after ", round);
        const Bytes body = Pattern(form.pageSize * 100);
        EXPECT_EQ(store.Put(path, body), storage::kOk);
        before[path] = body;
    }
    EXPECT_EQ(store.Close(), storage::kOk);
    EXPECT_EQ(container_.Get().size(), bytes.size());
    container_.ReadSound();
}

// Killed behind any page that it writes, it leaves all content where it is found, and lost pages at
// most; without a repair.
TEST_P(Compaction, ThatIsKilledLosesNothing) {
    const Bytes sparse = Sparse(2);
    const Content before = ContentOf(container_.ReadSound().root);
    std::vector<Bytes> images;
    {
        const support::MemoryFiles::Recording recording(container_.Files());
        EngineStore store;
        ASSERT_EQ(store.Open(container_.Path()), storage::kOk);
        ASSERT_EQ(storage::StorageCompact(store.Container(), nullptr), storage::kOk);
        ASSERT_EQ(store.Close(), storage::kOk);
        for (size_t i = 0; i < recording.Changes().size(); ++i)
            for (size_t at = 0; at <= recording.Changes()[i].bytes.size();
                 at += GetParam().pageSize)
                images.push_back(recording.Image(container_.Path(), i + 1, at));
    }
    ASSERT_GT(images.size(), 20u);
    for (size_t i = 0; i < images.size(); i += 1 + images.size() / (8 * Rounds(6))) {
        SCOPED_TRACE("moment " + std::to_string(i));
        container_.Put(images[i]);
        const CheckOutcome check = container_.Check();
        EXPECT_TRUE(check.FoundOnlyLostPages()) << check.Findings();
        EngineStore store;
        ASSERT_EQ(store.Open(container_.Path()), storage::kOk);
        ExpectWhole(store, before);
        if (HasFailure()) return;
    }
}

// A compaction that is stopped between its steps is a sound container all the same, and the next
// one goes on.
TEST_P(Compaction, CanBeStoppedBetweenItsSteps) {
    Sparse(1);
    const Content before = ContentOf(container_.ReadSound().root);
    uint32_t steps = 0;
    for (uint32_t allowed = 0; allowed < 50; ++allowed) {
        steps = allowed;
        const storage::Status status = storage::StorageCompactFile(
            support::Wide(container_.Path()).c_str(), &steps, [](void* left) {
                uint32_t* count = static_cast<uint32_t*>(left);
                return *count != 0 && (*count)-- != 0;
            });
        const Reading after = container_.ReadSound();
        EXPECT_EQ(ContentOf(after.root), before);
        if (status == storage::kOk) return ExpectFull(after);
        ASSERT_EQ(status, storage::kCancelled);
    }
    ADD_FAILURE() << "it never ends";
}

INSTANTIATE_TEST_SUITE_P(Shapes, Compaction,
                         testing::Values(Layout{256, false}, Layout{256, true}, Layout{512, false},
                                         Layout{4096, false}));

}  // namespace
}  // namespace faults
