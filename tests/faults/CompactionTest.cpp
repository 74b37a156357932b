// Compaction of stores and containers of all shapes: the file shrinks to the pages in use, all
// reads the same, whoever has something open goes on, and a failure leaves everything as it was.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/faults/Registry.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/EveryFailure.h"
#include "tests/support/MemoryFiles.h"
#include "tests/support/RecordingFile.h"

namespace faults {
namespace {

namespace container = support::container;
using container::EngineFile;
using container::EngineStore;

// What the file at `path` holds must agree with itself, and be all the file holds.
container::Reading ReadSound(const Bytes& bytes) {
    container::Reading reading = container::ReadContainer(bytes);
    EXPECT_TRUE(reading.Sound()) << reading.Report();
    return reading;
}

// Nothing in the file is free.
void ExpectFull(const container::Reading& reading) {
    const uint32_t group = reading.pageSize / 2;
    const uint32_t mapPages = (reading.pageCount + group - 1) / group;
    EXPECT_EQ(reading.usedPages + mapPages + 1, reading.pageCount);
}

struct Shape {
    uint32_t pageSize;
    bool foreign;
};

class Compaction : public testing::TestWithParam<Shape> {
  protected:
    container::Form FormOf(uint32_t freePages) const {
        container::Form form;
        form.pageSize = GetParam().pageSize;
        form.foreign = GetParam().foreign;
        form.freePages = freePages;
        return form;
    }
    // A container of everything, in which pages are free all over.
    Bytes Sparse(uint32_t seed) {
        std::mt19937 random(seed);
        container::Item root = container::RichTree(GetParam().pageSize);
        for (uint32_t i = 0; i < 40; ++i) {
            const std::string name = "filler " + std::to_string(i);
            root.children.insert(
                root.children.begin() + random() % root.children.size(),
                container::File(container::ToUnits(name), container::Pattern(random() % 4000)));
        }
        memory_.Put(path_, container::Builder(FormOf(seed % 3), root).Finish());
        EngineStore store;
        EXPECT_EQ(store.Open(path_), storage::kOk);
        for (uint32_t i = 0; i < 40; ++i) {
            const std::string name = "\\filler " + std::to_string(i);
            if (random() % 4 != 0) {
                EXPECT_EQ(store.Delete(container::ToUnits(name)), storage::kOk);
            }
        }
        EXPECT_EQ(store.Close(), storage::kOk);
        return memory_.Get(path_);
    }
    void ExpectCompact(const container::Content& before) {
        const Bytes bytes = memory_.Get(path_);
        const container::Reading after = ReadSound(bytes);
        EXPECT_EQ(container::ContentOf(after.root), before);
        ExpectFull(after);
        EXPECT_TRUE(container::CheckContainer(path_, container::kDeepCheck).FoundNothing());
    }

    // All reads as before, the container takes more, and at most pages are lost.
    void ExpectWhole(EngineStore& store, const container::Content& before, bool compact) {
        std::vector<std::string> failures;
        for (const auto& [path, body] : store.ReadAll(&failures)) EXPECT_EQ(body, before.at(path));
        EXPECT_TRUE(failures.empty()) << failures.front();
        EXPECT_EQ(store.Put(u"\\after", container::Pattern(5000)), storage::kOk);
        if (compact) {
            EXPECT_EQ(storage::StorageCompact(store, nullptr), storage::kOk);
        }
        EXPECT_EQ(store.Close(), storage::kOk);
        const container::CheckOutcome check =
            container::CheckContainer(path_, container::kDeepCheck);
        EXPECT_TRUE(check.FoundOnlyLostPages()) << check.Findings();
        container::Content after =
            container::ContentOf(container::ReadContainer(memory_.Get(path_)).root);
        EXPECT_EQ(after.erase(u"\\after"), 1u);
        EXPECT_TRUE(after == before);
    }

    support::TempDir dir_;
    const std::filesystem::path path_ = dir_ / "c.dat";
    support::MemoryFiles memory_;
};

TEST_P(Compaction, ShrinksToThePagesInUseAndChangesNothingElse) {
    for (uint32_t seed = 1; seed <= container::Rounds(6); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const container::Content before = container::ContentOf(ReadSound(Sparse(seed)).root);
        EngineStore store;
        ASSERT_EQ(store.Open(path_), storage::kOk);
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
        container::Content after = store.ReadAll();
        for (const auto& [path, body] : after) EXPECT_EQ(body, before.at(path));
        EXPECT_EQ(store.Put(u"\\deep\\after", container::Pattern(3000)), storage::kOk);
        EXPECT_EQ(store.Close(), storage::kOk);
        ReadSound(memory_.Get(path_));
    }
}

// Once for a full container and once for one that is free at its end only.
TEST_P(Compaction, OfAContainerWithNothingToMoveMovesNothing) {
    for (const uint32_t freePages : {0u, 5u}) {
        const container::Item tree = container::RichTree(GetParam().pageSize);
        const Bytes full = container::Builder(FormOf(0), tree).Finish();
        memory_.Put(path_, container::Builder(FormOf(freePages), tree).Finish());
        EngineStore store;
        ASSERT_EQ(store.Open(path_), storage::kOk);
        EXPECT_EQ(storage::StorageCompact(store.Container(), nullptr), storage::kOk);
        EXPECT_EQ(store.Close(), storage::kOk);
        EXPECT_EQ(memory_.Get(path_).size(), full.size());
        EXPECT_EQ(container::ContentOf(ReadSound(memory_.Get(path_)).root),
                  container::ContentOf(tree));
    }
}

// A container of fixed size keeps its length; what was free in it is all behind the last page in
// use, from where it grows.
TEST_P(Compaction, OfAContainerWithItsLogInsideLeavesItsEndFree) {
    container::Form form = FormOf(0);
    form.inFileLog = 1;
    container::Item root = container::RichTree(form.pageSize);
    for (int i = 0; i < 30; ++i)
        root.children.insert(root.children.begin(),
                             container::File(container::ToUnits("filler " + std::to_string(i)),
                                             container::Pattern(form.pageSize * 3)));
    container::Builder builder(form, root);
    builder.AddInFileLog({}, form.pageSize);  // past the next map page
    const Bytes bytes = builder.Finish();
    memory_.Put(path_, bytes);
    EngineStore store;
    ASSERT_EQ(store.Open(path_), storage::kOk);
    for (int i = 0; i < 30; i += 2)
        ASSERT_EQ(store.Delete(container::ToUnits("\\filler " + std::to_string(i))), storage::kOk);
    container::Content before = store.ReadAll();
    for (int round = 0; round < 2; ++round) {
        uint8_t done = 0, corrupted = 1;
        ASSERT_EQ(storage::StorageCompact(store.Container(), &done), storage::kOk);
        EXPECT_EQ(done, 255);
        EXPECT_EQ(storage::StorageIsCorrupted(store.Container(), &corrupted), storage::kOk);
        EXPECT_EQ(corrupted, 0);
        EXPECT_EQ(store.ReadAll(), before);
        const std::u16string path = u"\\after " + container::ToUnits(std::to_string(round));
        const Bytes body = container::Pattern(form.pageSize * 100);
        EXPECT_EQ(store.Put(path, body), storage::kOk);
        before[path] = body;
    }
    EXPECT_EQ(store.Close(), storage::kOk);
    EXPECT_EQ(memory_.Get(path_).size(), bytes.size());
    ReadSound(memory_.Get(path_));
    EXPECT_TRUE(container::CheckContainer(path_, container::kDeepCheck).FoundNothing());
}

// Killed behind any page that it writes, it leaves all content where it is found, and lost pages at
// most; without a repair.
TEST_P(Compaction, ThatIsKilledLosesNothing) {
    const Bytes sparse = Sparse(2);
    const container::Content before = container::ContentOf(ReadSound(sparse).root);
    std::vector<Bytes> images;
    {
        support::RecordingFile recording;
        EngineStore store;
        ASSERT_EQ(store.Open(path_), storage::kOk);
        ASSERT_EQ(storage::StorageCompact(store.Container(), nullptr), storage::kOk);
        ASSERT_EQ(store.Close(), storage::kOk);
        const platform::WString path = dir_.File("c.dat");
        for (size_t i = 0; i < recording.Changes().size(); ++i)
            for (size_t at = 0; at <= recording.Changes()[i].bytes.size();
                 at += GetParam().pageSize)
                images.push_back(recording.Image(path, i + 1, at));
    }
    ASSERT_GT(images.size(), 20u);
    for (size_t i = 0; i < images.size(); i += 1 + images.size() / (8 * container::Rounds(6))) {
        SCOPED_TRACE("moment " + std::to_string(i));
        memory_.Put(path_, images[i]);
        const container::CheckOutcome check =
            container::CheckContainer(path_, container::kDeepCheck);
        EXPECT_TRUE(check.FoundOnlyLostPages()) << check.Findings();
        EngineStore store;
        ASSERT_EQ(store.Open(path_), storage::kOk);
        ExpectWhole(store, before, true);
        if (HasFailure()) return;
    }
}

// A compaction that is stopped between its steps is a sound container all the same, and the next
// one goes on.
TEST_P(Compaction, CanBeStoppedBetweenItsSteps) {
    const container::Content before = container::ContentOf(ReadSound(Sparse(1)).root);
    uint32_t steps = 0;
    for (uint32_t allowed = 0; allowed < 50; ++allowed) {
        steps = allowed;
        const storage::Status status =
            storage::StorageCompactFile(dir_.File("c.dat").c_str(), &steps, [](void* left) {
                uint32_t* count = static_cast<uint32_t*>(left);
                return *count != 0 && (*count)-- != 0;
            });
        const container::Reading after = ReadSound(memory_.Get(path_));
        EXPECT_EQ(container::ContentOf(after.root), before);
        if (status == storage::kOk) return ExpectFull(after);
        ASSERT_EQ(status, storage::kCancelled);
    }
    ADD_FAILURE() << "it never ends";
}

// Any call that fails, and each from then on or only this one, leaves a sound container with the
// same content, part of which has been moved. Pages given up may stay lost.
TEST_P(Compaction, ThatFailsIsRolledBack) {
    const Bytes sparse = Sparse(1);
    const container::Content before = container::ContentOf(ReadSound(sparse).root);
    for (const auto what : {support::Failing::Allocation, support::Failing::FileCall}) {
        const auto attempt = [&](support::Failure& failure) {
            memory_.Put(path_, sparse);
            EngineStore store;
            ASSERT_EQ(store.Open(path_), storage::kOk);
            const storage::Status status =
                failure.During([&] { return storage::StorageCompact(store, nullptr); });
            if (!failure.Hit()) {
                EXPECT_EQ(status, storage::kOk);
            }
            ExpectWhole(store, before, false);
        };
        support::WithEveryFailure(what, attempt, container::Rounds(6) < 6 ? 4 : 40);
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, Compaction,
                         testing::Values(Shape{256, false}, Shape{256, true}, Shape{512, false},
                                         Shape{4096, false}));

// A store in another process, which sees the compacted file when it takes the lock.
const support::ChildRole kCompact("compact", [](const std::vector<std::string>& arguments) {
    Store store(support::Wide(arguments[0]));
    uint32_t done = 0;
    const bool good = store.Lock() == FSSTATUS_SUCCESS &&
                      FBR_Compact(store.handle, &done) == FSSTATUS_SUCCESS && done == 255 &&
                      store.Unlock() == FSSTATUS_SUCCESS;
    return good ? 0 : 1;
});

class CompactionOfAStore : public testing::Test {
  protected:
    // Random work on the store and the model; afterwards half of the root's keys are gone.
    void Work(int steps) {
        for (int i = 0; i < steps; ++i) {
            const Step step = RandomStep(&random_, model_);
            if (step.kind == Step::Kind::Compact || !Apply(step, &model_)) continue;
            ASSERT_EQ(Apply(step, &store_), FSSTATUS_SUCCESS);
        }
        for (size_t left = model_.keys.size() / 2; left > 0; --left) {
            const Step step{Step::Kind::DeleteKey, {model_.keys.begin()->first}, {}};
            ASSERT_TRUE(Apply(step, &model_));
            ASSERT_EQ(Apply(step, &store_), FSSTATUS_SUCCESS);
        }
    }
    // Those of the file, which has grown less.
    void ExpectCompact(size_t before) {
        const Bytes bytes = support::ReadBytes(dir_ / "s.fbr");
        EXPECT_LT(bytes.size(), before);
        const container::Reading reading = ReadSound(bytes);
        ExpectFull(reading);
        EXPECT_EQ(ContentOf(reading), model_);
    }
    size_t Size() const { return std::filesystem::file_size(dir_ / "s.fbr"); }

    support::TempDir dir_;
    Store store_{dir_.File("s.fbr")};
    std::mt19937 random_{5};
    Key model_;
};

TEST_F(CompactionOfAStore, LeavesOpenKeysToGoOn) {
    ASSERT_EQ(store_.Lock(), FSSTATUS_SUCCESS);
    const FBR_KEY key = store_.Make(WTEXT("\\k9\\sub"));
    ASSERT_EQ(store_.Set(key, WTEXT("v"), Bytes(500, 1)), FSSTATUS_SUCCESS);
    model_.keys[u"k9"].keys[u"sub"].values[u"v"] = {keystore::kRegBinary, Bytes(500, 1)};
    for (int round = 0; round < 3; ++round) {
        ASSERT_NO_FATAL_FAILURE(Work(300));
        const size_t before = Size();
        uint32_t done = 0;
        ASSERT_EQ(FBR_Compact(store_.handle, &done), FSSTATUS_SUCCESS);
        EXPECT_EQ(done, 255u);
        ExpectCompact(before);
        EXPECT_EQ(store_.Get(key, WTEXT("v")), Bytes(500, 1));
        ASSERT_EQ(store_.Set(key, WTEXT("w"), Bytes(5000, 2)), FSSTATUS_SUCCESS);
        model_.keys[u"k9"].keys[u"sub"].values[u"w"] = {keystore::kRegBinary, Bytes(5000, 2)};
    }
}

TEST_F(CompactionOfAStore, InAnotherProcessIsSeenAtTheNextLock) {
    ASSERT_EQ(store_.Lock(), FSSTATUS_SUCCESS);
    ASSERT_NO_FATAL_FAILURE(Work(400));
    ASSERT_EQ(store_.Unlock(), FSSTATUS_SUCCESS);
    const size_t before = Size();
    EXPECT_EQ(support::ChildProcess("compact", {(dir_ / "s.fbr").string()}).Wait(), 0);
    ExpectCompact(before);
    ASSERT_EQ(store_.Lock(), FSSTATUS_SUCCESS);
    ASSERT_NO_FATAL_FAILURE(Work(200));
    EXPECT_EQ(store_.Close(), FSSTATUS_SUCCESS);
    EXPECT_EQ(ContentOf(ReadSound(support::ReadBytes(dir_ / "s.fbr"))), model_);
}

}  // namespace
}  // namespace faults
