// SPDX-License-Identifier: MIT
// Crashes: what a run writes is recorded, and the file as it was at every moment, also in the
// middle of a page, is repaired and read. Behind a whole page the step in hand is done or not; a
// torn page may take some values along, counted as lost, and what was never written must not
// appear.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/faults/Registry.h"

namespace faults {
namespace {

using namespace support::container;
using support::FileChange;

constexpr uint32_t kPageSize = 512;

// One run: what was written, and what the store held before each step.
struct Recorded {
    struct Moment {
        Step step;
        Key before;
        size_t end;  // changes made when it was done
    };

    explicit Recorded(const std::vector<Step>& work) {
        MemoryContainer container;
        auto store = std::make_unique<Store>(support::Wide(container.Path()));
        EXPECT_EQ(store->Lock(), FSSTATUS_SUCCESS);
        const support::MemoryFiles::Recording recording(container.Files());
        start = container.Get();
        Key model;
        for (const Step& step : work) {
            moments.push_back({step, model, 0});
            faults::Apply(step, &model);
            EXPECT_EQ(faults::Apply(step, store.get()), FSSTATUS_SUCCESS);
            moments.back().end = recording.Changes().size();
        }
        // Closing writes as well.
        store.reset();
        moments.push_back({{Step::Kind::Compact, {}, {}}, model, SIZE_MAX});
        changes = recording.Changes();
    }

    // The step that was in hand when `count` changes had been made.
    const Moment& At(size_t count) const {
        return *std::partition_point(moments.begin(), moments.end(),
                                     [&](const Moment& moment) { return moment.end < count; });
    }

    Bytes start;
    std::vector<FileChange> changes;
    std::vector<Moment> moments;
};

// The values of a key and below it without their places, which a renaming changes.
std::vector<std::pair<uint32_t, Bytes>> Unplaced(const Key& key) {
    std::vector<std::pair<uint32_t, Bytes>> values;
    for (const auto& [path, value] : Flatten(key)) values.emplace_back(value.type, value.data);
    std::sort(values.begin(), values.end());
    return values;
}

// Repairs the images and judges what is left.
class Judge {
  public:
    explicit Judge(const Recorded& run) : run_(run) {}

    // `changes` are in the image, the last one in part if it is torn.
    void Crash(const Bytes& image, size_t changes, bool torn, bool names) {
        const auto& [step, before, end] = run_.At(changes);
        const Key found = Repaired(image);
        if (!torn) {
            ASSERT_EQ(JudgeCut(before, step, found), "") << "change " << changes;
            return;
        }
        Key after = before;
        faults::Apply(step, &after);
        const auto is = Unplaced(found), was = Unplaced(before), comes = Unplaced(after);
        std::vector<std::pair<uint32_t, Bytes>> known, kept, lost;
        std::set_union(was.begin(), was.end(), comes.begin(), comes.end(),
                       std::back_inserter(known));
        std::set_intersection(was.begin(), was.end(), comes.begin(), comes.end(),
                              std::back_inserter(kept));
        std::set_difference(kept.begin(), kept.end(), is.begin(), is.end(),
                            std::back_inserter(lost));
        lost_ += lost.size();
        // The value in hand can be of any state, and so can its name.
        Path inHand = step.path;
        inHand.push_back(step.name);
        for (const auto& [path, value] : Flatten(found))
            ASSERT_TRUE(
                names || path == inHand ||
                std::binary_search(known.begin(), known.end(), std::pair(value.type, value.data)))
                << "change " << changes << ": something new appeared";
    }
    // Per thousand crash points.
    double LostRate() const { return 1000.0 * static_cast<double>(lost_) / std::max(points_, 1u); }

  private:
    Key Repaired(const Bytes& image) {
        container_.Put(image);
        EXPECT_EQ(container_.Check(kRepair).status, 0);
        const Bytes repaired = container_.Get();
        if (points_++ % 8 == 0) container_.ExpectPromisesKept();
        return ContentOf(ReadContainer(repaired));
    }

    const Recorded& run_;
    MemoryContainer container_;
    uint32_t points_ = 0;
    uint64_t lost_ = 0;
};

// Every `stride`th moment of the run. Within a transfer of pages, each page is a moment, and so
// are some places in it.
void CrashEverywhere(const Recorded& run, Judge* judge, uint32_t stride) {
    Bytes image = run.start;
    uint32_t moment = 0;
    for (size_t i = 0; i < run.changes.size(); ++i) {
        const FileChange& change = run.changes[i];
        if (change.cut) {
            image.resize(change.offset);
            judge->Crash(image, i + 1, false, false);
        }
        for (size_t at = 0; at < change.bytes.size(); at += kPageSize) {
            const uint8_t* page = change.bytes.data() + at;
            for (const size_t torn : {size_t{3}, size_t{40}, size_t{kPageSize / 2}}) {
                if (++moment % stride != 0) continue;
                Bytes partial = image;
                support::Overwrite(&partial, change.offset + at, page, torn);
                judge->Crash(partial, i + 1, true, Get16(page, 0) == EntryPage);
            }
            support::Overwrite(&image, change.offset + at, page, kPageSize);
            if (++moment % stride == 0) judge->Crash(image, i + 1, false, false);
            if (testing::Test::HasFatalFailure()) return;
        }
    }
}

using Kind = Step::Kind;
struct Script {
    const char* name;
    std::vector<Kind> kinds;  // steps of other kinds are left out
};
class Crash : public testing::TestWithParam<Script> {};

TEST_P(Crash, LeavesWhatWasThereBefore) {
    const Script& script = GetParam();
    const uint32_t length = LongTests();
    for (uint32_t seed = 1; seed <= length; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Steps random(seed, {}, script.kinds);
        std::vector<Step> steps;
        while (steps.size() < 150) steps.push_back(random.Next());
        const Recorded run(steps);
        Judge judge(run);
        CrashEverywhere(run, &judge, length > 1 ? 1 : 66 / Rounds(6));
        std::cout << script.name << ": " << judge.LostRate()
                  << " values lost per 1000 crash points\n";
        if (HasFatalFailure()) return;
        EXPECT_LE(judge.LostRate(), 2);
    }
}

const Script kScripts[] = {
    {"sets", {Kind::Set}},
    {"deletes", {Kind::Set, Kind::DeleteValue, Kind::DeleteKey}},
    {"renames", {Kind::Set, Kind::DeleteValue, Kind::DeleteKey, Kind::Rename}},
    {"compaction", {Kind::Set, Kind::DeleteValue, Kind::DeleteKey, Kind::Compact}},
};
INSTANTIATE_TEST_SUITE_P(Scripts, Crash, testing::ValuesIn(kScripts),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace faults
