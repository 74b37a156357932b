// SPDX-License-Identifier: MIT
// The same random work on a store and on a plain tree in memory: they must stay equal, also for
// open handles, when there are volatile keys beside, and when the store is compacted, checked and
// opened again. A run that goes wrong is cut down to the deeds that matter, and told as a script.
// ZRFS_LONG_TESTS=n does n times as much.
#include <cstdlib>

#include "tests/contract/Player.h"
#include "tests/faults/Registry.h"
#include "tests/support/Shrunk.h"

namespace contract {
namespace {

using faults::FindKey;
using faults::Step;
using Path = std::vector<std::u16string>;
using Content = support::container::Key;

struct Deed {
    enum class What { Work, Hold, UseHeld, Read, Volatile, Look, Reopen };
    What what;
    Step step;
    uint32_t roll;
};

std::string Narrow(const std::u16string& text) {
    return std::string(text.begin(), text.end());
}
// As a word of a line.
std::string Joined(const Path& path) {
    std::string text = path.empty() ? "\"\\" : "\"";
    for (const std::u16string& part : path) text += "\\" + Narrow(part);
    return text + "\"";
}
// The end of a line that sets a value.
std::string DataIn(const Step& step) {
    std::string text = " " + std::to_string(step.value.type) + " ";
    for (const uint8_t byte : step.value.data)
        text += {"0123456789abcdef"[byte / 16], "0123456789abcdef"[byte % 16]};
    return text;
}

// A store, worked on by lines of a script, and what it must hold.
class Run {
  public:
    explicit Run(const Backend& backend)
        : backend_(backend), player_(backend, backend.makePlace()) {}
    // Empty, or what is wrong.
    std::string Do(const Deed& deed) {
        switch (deed.what) {
            case Deed::What::Work:
                return Work(deed.step, deed.roll);
            case Deed::What::Hold:
                return Hold(deed.step.path, deed.roll);
            case Deed::What::UseHeld:
                return held_.empty() ? "" : Use(held_[deed.roll % held_.size()], deed.step);
            case Deed::What::Read:
                return Read(deed.step.path);
            case Deed::What::Volatile:
                return MakeVolatile("volatile" + std::to_string(deed.roll % 4));
            case Deed::What::Look:
                return Line("corrupted -> 0");
            default:
                return Reopen();
        }
    }
    std::string Judge() {
        Content expected = model_, found;
        for (const std::string& name : volatile_)
            expected.keys[std::u16string(name.begin(), name.end())];
        const FBR_STATUS status = support::ReadAll(player_.Handle(), &found);
        if (status != FSSTATUS_SUCCESS) return "reading answers " + std::to_string(status);
        return found == expected ? "" : "another content";
    }
    const std::string& Played() const { return lines_; }

  private:
    struct Held {
        std::string key;
        Path path;
    };
    std::string Line(const std::string& line, FBR_STATUS* status = nullptr) {
        bool asWritten = false;
        const FBR_STATUS told = player_.Answer(line, &asWritten);
        if (status != nullptr) *status = told;
        lines_ += "\n  " + line;
        return asWritten ? "" : line + " answers" + player_.Told();
    }
    // Those up to the first that is wrong.
    std::string Lines(const std::vector<std::string>& lines) {
        std::string wrong;
        for (size_t i = 0; i < lines.size() && wrong.empty(); ++i) wrong = Line(lines[i]);
        return wrong;
    }
    static bool IsWithin(const Path& path, const Path& above) {
        return path.size() >= above.size() && std::equal(above.begin(), above.end(), path.begin());
    }

    std::string Work(const Step& step, uint32_t roll) {
        // What is there is found by any spelling. A rename carries the handles of its own along.
        std::string path = Joined(step.path);
        const bool there = FindKey(&model_, step.path) != nullptr;
        if (there && step.kind != Step::Kind::Rename && roll % 3 == 0)
            for (char& unit : path) unit = static_cast<char>(std::toupper(unit));
        const std::string name = " \"" + Narrow(step.name) + "\"";
        if (step.kind == Step::Kind::Compact) {
            Line("compact");  // some kinds have nothing to compact
            return "";
        }
        if (step.kind == Step::Kind::DeleteKey) return DeleteTree(step, path);
        if (step.kind == Step::Kind::Rename) return there ? Rename(step, path + name) : "";
        const bool had = faults::Apply(step, &model_);
        if (step.kind == Step::Kind::DeleteValue)
            return there ? Line("unset " + path + name + (had ? "" : " -> NOT_FOUND"))
                         : Line("open " + path + " -> NOT_FOUND");
        const std::string make = step.path.empty() ? "key = open \\"
                                 : there           ? "key = make " + path + " -> ALREADY_EXISTS"
                                                   : "key = make " + path;
        return Lines({make, "set @key" + name + DataIn(step), "close @key"});
    }
    std::string DeleteTree(const Step& step, const std::string& path) {
        const Path above(step.path.begin(), step.path.end() - 1);
        const bool hasParent = FindKey(&model_, above) != nullptr;
        const char* const answer = faults::Apply(step, &model_)             ? ""
                                   : hasParent || !backend_.Is("container") ? " -> NOT_FOUND"
                                                                            : " -> FAILED";
        std::string wrong = Line("tree " + path + answer);
        LetGo([&](const Held& held) { return IsWithin(held.path, step.path); });
        return wrong;
    }
    std::string Rename(const Step& step, const std::string& words) {
        const Path above(step.path.begin(), step.path.end() - 1);
        const std::u16string& last = step.path.back();
        if (step.name == last) return "";
        // The names that sort up to the new one end with the old one: the key stays in its place.
        const auto& siblings = FindKey(&model_, above)->keys;
        if (backend_.Is("renameInPlaceDuplicates") && last < step.name &&
            siblings.upper_bound(last) == siblings.lower_bound(step.name))
            return "";
        const bool done = faults::Apply(step, &model_),
                   mayTrip = backend_.Is("renameTripsOverDeleted");
        FBR_STATUS told = FSSTATUS_SUCCESS;
        std::string wrong = Line("rename " + words +
                                     (!done     ? " -> ALREADY_EXISTS"
                                      : mayTrip ? " -> or NOT_FOUND"
                                                : ""),
                                 &told);
        for (Held& held : held_)
            if (done && IsWithin(held.path, step.path)) held.path[above.size()] = step.name;
        if (told == FSSTATUS_NOT_FOUND) LetGo([](const Held&) { return true; });
        return wrong;
    }

    // A handle that is kept, or a duplicate of one.
    std::string Hold(const Path& path, uint32_t roll) {
        if (path.empty() || FindKey(&model_, path) == nullptr) return "";
        if (held_.size() > 4)
            LetGo([first = held_.front().key](const Held& held) { return held.key == first; });
        held_.push_back({"h" + std::to_string(++count_), path});
        const std::string& key = held_.back().key;
        if (roll % 2 != 0) return Line(key + " = open " + Joined(path));
        return Lines({"key = open " + Joined(path), key + " = duplicate @key", "close @key"});
    }
    template <class Which>
    void LetGo(Which which) {
        for (const Held& held : held_)
            if (which(held)) Line("close @" + held.key);
        std::erase_if(held_, which);
    }
    std::string Use(const Held& held, const Step& step) {
        FindKey(&model_, held.path)->values[u"held"] = step.value;
        return Lines({"path @" + held.key + " -> " + Joined(held.path),
                      "set @" + held.key + " held" + DataIn(step)});
    }
    std::string Read(const Path& path) {
        const Content* expected = FindKey(&model_, path);
        if (expected == nullptr) return Line("open " + Joined(path) + " -> NOT_FOUND");
        if (path.empty()) return Judge();
        Content found;
        FBR_KEY opened = 0;
        FBR_OpenDirEx(0, WordsOf(Joined(path))[0].c_str(), &opened, player_.Handle());
        const OpenKey key(player_.Handle(), opened);
        if (support::ReadKey(player_.Handle(), key, &found) != FSSTATUS_SUCCESS)
            return "no reading";
        return found == *expected ? "" : "a key of another content";
    }
    // Made again it may not be volatile any more.
    std::string MakeVolatile(const std::string& name) {
        if (volatile_.contains(name)) return "";
        if (backend_.Is("offline")) return Line("make-volatile " + name + " -> INVALID_NAME");
        volatile_.insert(name);
        return Line("make-volatile " + name);
    }
    std::string Reopen() {
        held_.clear();
        std::string wrong = Judge();
        Line("shut");
        if (backend_.Is("volatileEndsWithStore")) volatile_.clear();
        if (wrong.empty() && backend_.Is("container") && backend_.Is("near"))
            wrong = Line("check-file");
        Line("use a");
        Line("lock 2");
        return wrong.empty() ? Judge() : wrong;
    }

    const Backend backend_;
    Player player_;
    Content model_;
    std::set<std::string> volatile_;
    std::vector<Held> held_;
    int count_ = 0;
    std::string lines_;
};

std::vector<Deed> Deeds(uint32_t seed, int count) {
    std::mt19937 random(seed);
    std::vector<Deed> deeds;
    Content model;
    using enum Deed::What;
    constexpr Deed::What kWhat[] = {Work, Work, Work, Work, Work, Hold, UseHeld, UseHeld, Read};
    for (int i = 1; i <= count; ++i) {
        Step step = faults::RandomStep(&random, model);
        const uint32_t roll = static_cast<uint32_t>(random());
        Deed::What what = kWhat[roll / 64 % std::size(kWhat)];
        if (i % 20 == 0) what = i % 40 == 0 ? Volatile : Look;
        if (i % 150 == 0) what = Reopen;
        if (what == Work) faults::Apply(step, &model);
        deeds.push_back({what, std::move(step), roll});
    }
    return deeds;
}

// What is wrong, and the lines that led there.
std::string Wrong(const Backend& backend, const std::vector<Deed>& deeds,
                  std::string* lines = nullptr) {
    Run run(backend);
    std::string wrong;
    for (size_t i = 0; i < deeds.size() && wrong.empty(); ++i) wrong = run.Do(deeds[i]);
    if (lines != nullptr) *lines = run.Played();
    return wrong.empty() ? run.Judge() : wrong;
}

class Model : public StoreTest, public testing::WithParamInterface<Backend> {
  protected:
    Model() : StoreTest(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(Stores, Model, testing::ValuesIn(AllBackends()),
                         [](const auto& param) { return param.param.name; });

TEST_P(Model, RandomWorkLeavesStoreAndModelEqual) {
    const uint32_t seed = static_cast<uint32_t>(testing::UnitTest::GetInstance()->random_seed());
    const char* times = std::getenv("ZRFS_LONG_TESTS");
    std::vector<Deed> deeds = Deeds(seed, 500 * (times == nullptr ? 1 : std::atoi(times)));
    std::string wrong = Wrong(GetParam(), deeds);
    if (wrong.empty()) return;
    deeds = support::Shrunk(deeds,
                            [&](const auto& fewer) { return !Wrong(GetParam(), fewer).empty(); });
    std::string lines;
    const std::string last = Wrong(GetParam(), deeds, &lines);
    FAIL() << wrong << "; repeat with --gtest_random_seed=" << seed << ". These lines will do, "
           << last << ":" << lines;
}

}  // namespace
}  // namespace contract
