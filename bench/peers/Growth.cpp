// SPDX-License-Identifier: MIT
#include "bench/peers/Growth.h"

#include <fmt/format.h>

#include "bench/peers/Results.h"

namespace bench {
namespace {

std::vector<KeyData> ManyValues(uint32_t count) {
    std::mt19937 dice(20);
    return {MakeKey(dice, "\\Alone", true, count)};
}

std::vector<KeyData> ManySiblings(uint32_t count) {
    std::mt19937 dice(20);
    std::vector<KeyData> content{MakeKey(dice, "\\Parent", false, 0)};
    for (uint32_t i = 0; i < count; ++i)
        content.push_back(MakeKey(dice, "\\Parent\\Child " + std::to_string(i), true, 1));
    return content;
}

std::vector<KeyData> Deep(uint32_t levels) {
    std::mt19937 dice(20);
    std::vector<KeyData> content;
    std::string path;
    for (uint32_t level = 1; level <= levels; ++level) {
        path += "\\Level " + std::to_string(level);
        const bool last = level == levels;
        content.push_back(MakeKey(dice, path, last, last ? kValuesPerKey : 0));
    }
    return content;
}

std::vector<KeyData> Usual(uint32_t) {
    return MakeContent(2000);
}

struct Axis {
    const char* name;
    std::vector<uint32_t> points;
    std::vector<KeyData> (*content)(uint32_t point);
    std::vector<Phase> phases;
    bool oursOnly;
    bool handles = false;  // the point is how many more are open than a key has
};

std::vector<Axis> Axes() {
    using P = Phase;
    return {
        {"keys",
         {2000, 5000, 10000, 20000},
         MakeContent,
         {P::Make, P::Set, P::Overwrite, P::Get, P::Hot, P::Path, P::Enumerate, P::Reopen},
         false},
        {"values in a key",
         {100, 1000, 10000, 100000},
         ManyValues,
         {P::Make, P::Set, P::Overwrite, P::Get, P::Hot, P::Enumerate, P::List},
         false},
        {"subkeys of a key",
         {500, 5000, 50000},
         ManySiblings,
         {P::Make, P::Set, P::Overwrite, P::Get, P::Path, P::Delete},
         false},
        {"levels",
         {5, 50, 500},
         Deep,
         {P::Make, P::Set, P::Overwrite, P::Get, P::Path, P::Enumerate},
         true},
        {"open handles more",
         {0, 1000, 10000},
         Usual,
         {P::Make, P::Set, P::Overwrite, P::Get, P::Hot, P::Path},
         true,
         true},
    };
}

// The stores that growth is compared with.
bool Takes(const Axis& axis, const Maker& maker) {
    if (maker.name == kOurs) return true;
    return !axis.oursOnly && (maker.name == kSqlite || maker.name == kLmdb);
}

}  // namespace

nlohmann::json MeasureGrowth(const std::vector<Maker>& makers, uint32_t rounds,
                             const std::filesystem::path& folder) {
    nlohmann::json all = nlohmann::json::array();
    for (const Axis& axis : Axes()) {
        for (uint32_t point : axis.points) {
            const std::vector<KeyData> content = axis.content(point);
            Results results;
            for (uint32_t round = 0; round < rounds; ++round) {
                Work work(content);
                std::vector<std::unique_ptr<Subject>> subjects;
                for (const Maker& maker : makers)
                    if (Takes(axis, maker))
                        subjects.push_back(std::make_unique<Subject>(
                            maker, folder / std::to_string(subjects.size())));
                for (Phase phase : axis.phases) {
                    work.Prepare(phase);
                    for (const auto& subject : subjects)
                        results.Add(subject->maker->name, phase, work.Run(phase, *subject));
                    if (phase != Phase::Make || !axis.handles) continue;
                    for (const auto& subject : subjects) work.OpenMore(*subject, point);
                }
            }
            fmt::print("\n{} {}", point, axis.name);
            results.Print(Clock::Cpu, axis.phases);
            for (nlohmann::json& row : results.Json()) {
                row["axis"] = axis.name;
                row["point"] = point;
                all.push_back(row);
            }
        }
    }
    return all;
}

}  // namespace bench
