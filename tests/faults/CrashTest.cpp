// Crashes: what a run writes is recorded, and the file as it was at every moment, also in the
// middle of a page, is repaired and read. Values that were there before the step in hand must still
// be there or are counted as lost; what was never written must not appear.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/faults/Registry.h"
#include "tests/support/MemoryFiles.h"
#include "tests/support/RecordingFile.h"

namespace faults {
namespace {

namespace container = support::container;
using support::FileChange;

constexpr uint32_t kPageSize = 512;

using Path = std::vector<std::u16string>;  // of a value, its name last
using Values = std::map<Path, Value>;

void Flatten(const Key& key, Path* path, Values* values) {
    for (const auto& [name, value] : key.values) {
        path->push_back(name);
        values->emplace(*path, value);
        path->pop_back();
    }
    for (const auto& [name, child] : key.keys) {
        path->push_back(name);
        Flatten(child, path, values);
        path->pop_back();
    }
}
Values Flatten(const Key& root) {
    Values values;
    Path path;
    Flatten(root, &path, &values);
    return values;
}

// What a page that is written is to the format.
std::string StepName(const uint8_t* page, uint64_t number, bool grows) {
    if (grows) return "growth";
    if (number % (kPageSize / 2) == 0) return "map";
    if (number == 1) return "superblock";
    switch (container::Get16(page, 0)) {
        case container::HeaderPage:
            return "object page";
        case container::EntryPage:
            return "entry page";
        case container::NamePage:
            return "name page";
        case container::DataPage:
        case container::PageListPage:
            return "stream page";
        default:
            return "freed page";
    }
}

// One run, to be ended before it is looked at: what was written, and what the store held after each
// step.
class Recorded {
  public:
    Recorded() : store_(std::make_unique<Store>(path_)) {
        EXPECT_EQ(store_->Lock(), FSSTATUS_SUCCESS);
        scopes_->recording.Restart();
        start_ = scopes_->recording.Image(path_, 0);
        Note();
    }

    void Do(const Step& step) {
        if (!faults::Apply(step, &model_)) return;
        EXPECT_EQ(faults::Apply(step, store_.get()), FSSTATUS_SUCCESS);
        Note(step);
    }
    // Closing writes as well.
    void End() {
        store_.reset();
        Note();
        changes_ = scopes_->recording.Changes();
        scopes_.reset();
    }

    const std::vector<FileChange>& Changes() const { return changes_; }
    const Bytes& Start() const { return start_; }

    // The step that was in hand when `changes` changes had been made, by the number of its end.
    size_t StepAt(size_t changes) const {
        size_t step = 0;
        while (step + 1 < ends_.size() && ends_[step] < changes) ++step;
        return step;
    }
    const Values& After(size_t step) const { return after_[step]; }
    // True when the step was about this value, whether or not it left the same bytes.
    bool InHand(const Path& path, size_t step) const {
        Path inHand = steps_[step].path;
        inHand.push_back(steps_[step].name);
        return inHand == path;
    }
    // Where the value is after the step: elsewhere when the step renamed a key above it.
    Path Moved(Path path, size_t step) const {
        const Step& done = steps_[step];
        const bool below = path.size() > done.path.size() &&
                           std::equal(done.path.begin(), done.path.end(), path.begin());
        if (done.kind == Step::Kind::Rename && below) path[done.path.size() - 1] = done.name;
        return path;
    }
    // True when a step up to this one left this value there.
    bool WasThere(const Path& path, const Value& value, size_t step) const {
        for (size_t i = 0; i <= step; ++i) {
            const auto found = after_[i].find(path);
            if (found != after_[i].end() && found->second == value) return true;
        }
        return false;
    }

  private:
    void Note(const Step& step = {Step::Kind::Compact, {}, {}}) {
        steps_.push_back(step);
        ends_.push_back(scopes_->recording.Changes().size());
        after_.push_back(Flatten(model_));
    }

    support::TempDir dir_;
    const WString path_ = dir_.File("run.fbr");
    struct Scopes {
        support::MemoryFiles memory{};
        support::RecordingFile recording{};
    };
    std::unique_ptr<Scopes> scopes_ = std::make_unique<Scopes>();
    std::unique_ptr<Store> store_;
    Bytes start_;
    std::vector<FileChange> changes_;
    Key model_;
    std::vector<size_t> ends_;  // changes made when a step was done
    std::vector<Values> after_;
    std::vector<Step> steps_;
};

// Repairs the images and judges what is left.
class Judge {
  public:
    explicit Judge(const Recorded& run) : run_(run) {}

    // `changes` are in the image, and of the last one `torn` tells whether a page is in part.
    void Crash(const Bytes& image, size_t changes, bool torn, const std::string& where) {
        ++points_;
        const Bytes repaired = Repair(image);
        const size_t step = run_.StepAt(changes);
        const Values found = Flatten(ContentOf(container::ReadContainer(repaired)));
        for (const auto& [path, value] : found) {
            if (run_.WasThere(path, value, step)) continue;
            // An entry that was written in part has a part of its name.
            const bool cut = torn && where.ends_with("entry page");
            ASSERT_TRUE(cut || IsMixed(path, value, step, torn))
                << where << ": something new appeared";
            ++mixed_;
        }
        Count(found, step, torn, where);
    }

    void Print(const char* name) const {
        std::cout << name << ": " << points_ << " crash points, " << Rate(lost_)
                  << " values lost per 1000 where no page was torn, " << Rate(lostTorn_)
                  << " by torn pages; " << mixed_
                  << " times the value in hand was part old, part new\n";
        for (const auto& [where, count] : byStep_)
            std::cout << "    " << count << " " << where << "\n";
    }
    double LostRate() const { return Rate(lost_); }
    double LostTornRate() const { return Rate(lostTorn_); }

  private:
    double Rate(uint64_t count) const {
        return points_ == 0 ? 0 : 1000.0 * static_cast<double>(count) / points_;
    }

    Bytes Repair(const Bytes& image) {
        memory_.Put(path_, image);
        const container::CheckOutcome outcome =
            container::CheckContainer(path_, container::kRepair);
        EXPECT_EQ(outcome.status, 0);
        if (points_ % 8 == 0) {
            for (const std::string& broken :
                 container::BrokenPromises(path_, [&] { return memory_.Get(path_); }))
                ADD_FAILURE() << broken;
            memory_.Put(path_, image);
            container::CheckContainer(path_, container::kRepair);
        }
        return memory_.Get(path_);
    }

    // The value in hand can be part old and part new, for a crash between its pages. A page of it
    // that is not written yet may hold what it held for an earlier value there, at another place of
    // it even; a torn page anything that was ever in the page.
    bool IsMixed(const Path& path, const Value& value, size_t step, bool torn) const {
        const bool inHand = run_.InHand(path, step);
        if (!inHand || torn) return inHand;
        std::set<std::pair<size_t, uint8_t>> known;  // place in a page, and byte
        constexpr size_t kPayload = kPageSize - 32;
        for (size_t i = 0; i <= step; ++i) {
            const auto found = run_.After(i).find(path);
            if (found == run_.After(i).end()) continue;
            const Bytes& data = found->second.data;
            for (size_t at = 0; at < data.size(); ++at) known.emplace(at % kPayload, data[at]);
        }
        for (size_t at = 0; at < value.data.size(); ++at)
            if (value.data[at] != 0 && known.count({at % kPayload, value.data[at]}) == 0)
                return false;
        return true;
    }

    // A value is lost when it stood before and after the step in hand, and does not now.
    void Count(const Values& found, size_t step, bool torn, const std::string& where) {
        const auto has = [](const Values& values, const Path& path, const Value& value) {
            const auto at = values.find(path);
            return at != values.end() && at->second == value;
        };
        for (const auto& [path, value] : run_.After(step == 0 ? 0 : step - 1)) {
            const Path moved = run_.Moved(path, step);
            if (run_.InHand(path, step) || !has(run_.After(step), moved, value)) continue;
            if (has(found, path, value) || has(found, moved, value)) continue;
            ++(torn ? lostTorn_ : lost_);
            ++byStep_[where];
        }
    }

    const Recorded& run_;
    support::TempDir dir_;
    const std::filesystem::path path_ = dir_ / "crashed.fbr";
    support::MemoryFiles memory_;
    uint32_t points_ = 0;
    uint64_t lost_ = 0, lostTorn_ = 0, mixed_ = 0;
    std::map<std::string, uint64_t> byStep_;
};

void Write(Bytes* image, uint64_t offset, const uint8_t* bytes, size_t count) {
    if (image->size() < offset + count) image->resize(offset + count);
    std::copy_n(bytes, count, image->data() + offset);
}

// Every `stride`th moment of the run. Within a transfer of pages, each page is a moment, and so
// are some places in it.
void CrashEverywhere(const Recorded& run, Judge* judge, uint32_t stride) {
    Bytes image = run.Start();
    uint32_t moment = 0;
    for (size_t i = 0; i < run.Changes().size(); ++i) {
        const FileChange& change = run.Changes()[i];
        if (change.kind == FileChange::Kind::Flush) continue;
        if (change.kind == FileChange::Kind::Cut) {
            image.resize(change.offset);
            judge->Crash(image, i + 1, false, "after a cut");
            continue;
        }
        const size_t oldSize = image.size();
        for (size_t at = 0; at < change.bytes.size(); at += kPageSize) {
            const uint8_t* page = change.bytes.data() + at;
            const uint64_t offset = change.offset + at;
            const std::string name = StepName(page, offset / kPageSize, offset >= oldSize);
            for (const size_t torn : {size_t{3}, size_t{40}, size_t{kPageSize / 2}}) {
                if (++moment % stride != 0) continue;
                Bytes partial = image;
                Write(&partial, offset, page, torn);
                judge->Crash(partial, i + 1, true, "within the " + name);
            }
            Write(&image, offset, page, kPageSize);
            if (++moment % stride == 0) judge->Crash(image, i + 1, false, "behind the " + name);
            if (testing::Test::HasFatalFailure()) return;
        }
    }
}

struct Script {
    friend void PrintTo(const Script& script, std::ostream* out) { *out << script.name; }

    const char* name;
    std::vector<Step::Kind> kinds;      // steps of other kinds are left out
    double lostAtMost, lostTornAtMost;  // per thousand crash points
};

class Crash : public testing::TestWithParam<Script> {};

TEST_P(Crash, LeavesWhatWasThereBefore) {
    const Script& script = GetParam();
    const uint32_t length = container::LongTests();
    for (uint32_t seed = 1; seed <= length; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        Key model;
        Recorded run;
        for (int steps = 0; steps < 150;) {
            const Step step = RandomStep(&random, model);
            const bool wanted = std::find(script.kinds.begin(), script.kinds.end(), step.kind) !=
                                script.kinds.end();
            if (!wanted || !faults::Apply(step, &model)) continue;
            run.Do(step);
            ++steps;
        }
        run.End();
        Judge judge(run);
        CrashEverywhere(run, &judge, length > 1 ? 1 : 66 / container::Rounds(6));
        judge.Print(script.name);
        if (HasFatalFailure()) return;
        EXPECT_LE(judge.LostRate(), script.lostAtMost);
        EXPECT_LE(judge.LostTornRate(), script.lostTornAtMost);
    }
}

using Kind = Step::Kind;
const Script kScripts[] = {
    {"sets", {Kind::Set}, 0, 2},
    {"deletes", {Kind::Set, Kind::DeleteValue, Kind::DeleteKey}, 0, 2},
    {"renames", {Kind::Set, Kind::DeleteValue, Kind::DeleteKey, Kind::Rename}, 0, 2},
    {"compaction", {Kind::Set, Kind::DeleteValue, Kind::DeleteKey, Kind::Compact}, 0, 2},
};
INSTANTIATE_TEST_SUITE_P(Scripts, Crash, testing::ValuesIn(kScripts),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace faults
