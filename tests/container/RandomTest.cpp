// Random operations through the engine, held against a model in memory and against the reader
// that shares no code with the engine. Seeds are fixed; ZRFS_LONG_TESTS=n runs n times as many.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/container/EngineStore.h"
#include "tests/container/Shapes.h"

namespace support::container {
namespace {

using storage::Status;

class RandomRun {
  public:
    RandomRun(uint32_t pageSize, bool foreign, uint32_t seed) : pageSize_(pageSize), dice_(seed) {
        Form form;
        form.pageSize = pageSize;
        form.foreign = foreign;
        WriteBytes(dir_ / "a", Builder(form, Directory(u"")).Finish());
        EXPECT_EQ(store_.Open(dir_ / "a"), storage::kOk);
    }

    void Step() {
        switch (Roll(12)) {
            case 0:
            case 1:
            case 2:
                return Put();
            case 3:
            case 4:
                return Delete();
            case 5:
                return MakeDirectory();
            case 6:
            case 7:
                return Move();
            case 8:
                return WriteSomewhere();
            case 9:
                return WriteSlowly();
            case 10:
                return Check();
            default:
                return Reopen();
        }
    }

    void Reopen() {
        ASSERT_EQ(store_.Close(), storage::kOk);
        const Reading reading = ReadContainer(ReadBytes(dir_ / "a"));
        ASSERT_TRUE(reading.Sound()) << reading.Report();
        ASSERT_EQ(ContentOf(reading.root), model_);
        ASSERT_EQ(store_.Open(dir_ / "a"), storage::kOk);
    }

    void Check() {
        std::vector<std::string> failures;
        ASSERT_EQ(store_.ReadAll(&failures), model_);
        ASSERT_TRUE(failures.empty()) << failures.front();
    }

  private:
    uint32_t Roll(uint32_t below) { return static_cast<uint32_t>(dice_() % below); }

    Bytes Body() {
        const uint32_t payload = pageSize_ - 32;
        const uint32_t sizes[] = {0,
                                  1,
                                  31,
                                  33,
                                  Roll(200),
                                  payload - 1,
                                  payload,
                                  payload + 1,
                                  Roll(payload * 4),
                                  payload * (15 + Roll(5)),
                                  Roll(payload * 40)};
        return Pattern(sizes[Roll(std::size(sizes))], Roll(1000));
    }

    std::u16string Name() {
        std::u16string name(1, static_cast<char16_t>(u'a' + Roll(20)));
        const uint32_t lengths[] = {0, 0, 0, 0, 20, 21, 22, 21 + pageSize_ / 2, 300};
        name.insert(0, lengths[Roll(std::size(lengths))], u'n');
        return name;
    }

    // A path of the model, "" for the root or none.
    std::u16string Any(bool directory) {
        std::vector<std::u16string> paths;
        for (const auto& [path, body] : model_)
            if (body.has_value() != directory) paths.push_back(path);
        if (directory) paths.push_back(u"");
        return paths.empty() ? u"" : paths[Roll(static_cast<uint32_t>(paths.size()))];
    }
    std::u16string Fresh() {
        std::u16string parent = Any(true);
        if (std::count(parent.begin(), parent.end(), u'\\') > 5) parent.clear();
        return parent + u"\\" + Name();
    }
    bool HasChildren(const std::u16string& path) const {
        const auto next = model_.upper_bound(path + u"\\");
        return next != model_.end() && next->first.rfind(path + u"\\", 0) == 0;
    }

    void Put() {
        const std::u16string path = Fresh();
        const Bytes body = Body();
        const auto found = model_.find(path);
        if (found != model_.end() && !found->second.has_value()) {
            ASSERT_EQ(store_.Put(path, body), storage::kExists);
            return;
        }
        ASSERT_EQ(store_.Put(path, body), storage::kOk) << Narrow(path);
        model_[path] = body;
    }

    void Delete() {
        const std::u16string path = Any(Roll(3) == 0);
        const Status status = store_.Delete(path.empty() ? u"\\" : path);
        if (path.empty()) {
            ASSERT_EQ(status, storage::kNotFound);
        } else if (HasChildren(path)) {
            ASSERT_EQ(status, storage::kNotEmpty);
        } else {
            ASSERT_EQ(status, storage::kOk) << Narrow(path);
            model_.erase(path);
        }
    }

    void MakeDirectory() {
        const std::u16string path = Fresh();
        ASSERT_EQ(store_.MakeDirectory(path),
                  model_.count(path) != 0 ? storage::kExists : storage::kOk);
        if (model_.count(path) == 0) model_[path] = std::nullopt;
    }

    void Move() {
        const std::u16string from = Any(Roll(3) == 0), to = Fresh();
        // A directory moved into itself would be lost; nobody tests for it.
        if (from.empty() || to.rfind(from + u"\\", 0) == 0 || from == to) return;
        const Status status = store_.Move(from, to);
        if (model_.count(to) != 0) {
            ASSERT_EQ(status, storage::kExists);
            return;
        }
        ASSERT_EQ(status, storage::kOk) << Narrow(from) << " to " << Narrow(to);
        Content moved;
        for (auto at = model_.begin(); at != model_.end();) {
            const bool self = at->first == from;
            const bool below = at->first.rfind(from + u"\\", 0) == 0;
            if (self || below) {
                moved[to + at->first.substr(from.size())] = at->second;
                at = model_.erase(at);
            } else {
                ++at;
            }
        }
        model_.merge(moved);
    }

    // One write at a random place, up to a page past the end.
    void WriteSomewhere() {
        const std::u16string path = Any(false);
        if (path.empty()) return;
        Bytes& body = *model_[path];
        const uint32_t at = Roll(static_cast<uint32_t>(body.size()) + pageSize_);
        const Bytes piece = Pattern(1 + Roll(pageSize_ * 3), Roll(1000));
        EngineFile file(store_, path);
        ASSERT_EQ(file.Opened(), storage::kOk);
        ASSERT_EQ(file.Seek(static_cast<int32_t>(at)), storage::kOk);
        ASSERT_EQ(file.Write(piece), storage::kOk);
        ASSERT_EQ(file.Close(), storage::kOk);
        if (body.size() < at + piece.size()) body.resize(at + piece.size());
        std::copy(piece.begin(), piece.end(), body.begin() + at);
    }

    // Many small writes through one handle.
    void WriteSlowly() {
        const std::u16string path = Any(false);
        if (path.empty()) return;
        Bytes& body = *model_[path];
        EngineFile file(store_, path);
        ASSERT_EQ(file.Opened(), storage::kOk);
        ASSERT_EQ(file.Seek(0, 2), storage::kOk);
        for (int i = 0; i < 10; ++i) {
            const Bytes piece = Pattern(1 + Roll(90), Roll(1000));
            ASSERT_EQ(file.Write(piece), storage::kOk);
            body.insert(body.end(), piece.begin(), piece.end());
        }
        ASSERT_EQ(file.Close(), storage::kOk);
    }

    TempDir dir_;
    uint32_t pageSize_;
    std::mt19937 dice_;
    EngineStore store_;
    Content model_;
};

class Random : public testing::TestWithParam<std::tuple<uint32_t, bool>> {};

TEST_P(Random, OperationsLeaveWhatTheModelHolds) {
    const auto [pageSize, foreign] = GetParam();
    for (uint32_t seed = 1; seed <= 2 * LongTests(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        RandomRun run(pageSize, foreign, seed);
        for (int step = 0; step < 200; ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            run.Step();
            if (HasFatalFailure()) return;
        }
        run.Reopen();
        if (HasFatalFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(PageSizes, Random,
                         testing::Combine(testing::Values(256u, 512u, 2048u), testing::Bool()));

}  // namespace
}  // namespace support::container
