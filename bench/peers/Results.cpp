// SPDX-License-Identifier: MIT
#include "bench/peers/Results.h"

#include <fmt/format.h>

#include <algorithm>

namespace bench {
namespace {

// Ratios of our time, with the lock held, to that of another store in the same run.
struct Goal {
    Phase phase;
    double toSqlite, toLmdb, toLmdbAtBest;
};
constexpr Goal kGoals[] = {
    {Phase::Set, 0.8, 1.1, 0.7},     {Phase::Overwrite, 0.5, 0.6, 0.4},
    {Phase::Get, 0.6, 1.6, 1.0},     {Phase::Hot, 0.06, 0.7, 0.5},
    {Phase::Path, 0.6, 1.5, 1.0},    {Phase::Enumerate, 0.9, 4, 1.5},
    {Phase::Delete, 0.45, 0.9, 0.4}, {Phase::Reopen, 0.25, 1.1, 0.8},
};
// Nanoseconds by which a set with its own lock, and a hot get without one, may be dearer.
struct Surcharge {
    Phase phase;
    double most;
};
constexpr Surcharge kSurcharges[] = {{Phase::Set, 1000}, {Phase::Hot, 100}};

double MedianOf(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

std::string Judged(double value, double goal) {
    return fmt::format("{:7.2f} of {:<5} {:6}", value, goal, value <= goal ? "met" : "MISSED");
}

}  // namespace

void Results::Add(const std::string& store, Phase phase, const Sample& sample) {
    if (times_.find(store) == times_.end()) stores_.push_back(store);
    Times& times = times_[store][phase];
    if (sample.operations == 0) return;
    times.cpu.push_back(sample.cpuNs / static_cast<double>(sample.operations));
    times.wall.push_back(sample.wallNs / static_cast<double>(sample.operations));
}

double Results::Median(const std::string& store, Phase phase, Clock clock) const {
    const auto found = times_.find(store);
    if (found == times_.end()) return 0;
    const auto times = found->second.find(phase);
    if (times == found->second.end()) return 0;
    return MedianOf(clock == Clock::Cpu ? times->second.cpu : times->second.wall);
}

void Results::Print(Clock clock, const std::vector<Phase>& phases) const {
    fmt::print("\nNanoseconds of {} an operation\n{:34}",
               clock == Clock::Cpu ? "processor time" : "time passed", "");
    for (Phase phase : phases) fmt::print(" {:>12.12}", Name(phase));
    fmt::print("\n");
    for (const std::string& store : stores_) {
        fmt::print("{:34}", store);
        for (Phase phase : phases) fmt::print(" {:>12.0f}", Median(store, phase, clock));
        fmt::print("\n");
    }
}

int Results::PrintGoals(Clock clock, nlohmann::json* json) const {
    int missed = 0;
    *json = nlohmann::json::array();
    const auto judge = [&](Phase phase, const char* to, bool must, double goal) {
        const double other = Median(to, phase, clock);
        if (other == 0) return std::string(24, ' ');
        const double ratio = Median(kOurs, phase, clock) / other;
        missed += must && ratio > goal ? 1 : 0;
        json->push_back({{"phase", Name(phase)},
                         {"to", to},
                         {"must", must},
                         {"goal", goal},
                         {"ratio", ratio},
                         {"met", ratio <= goal}});
        return Judged(ratio, goal);
    };
    fmt::print("\nOurs, lock held, to\n{:30} {:24} {:24} {}\n", "", kSqlite, "LMDB, must",
               "LMDB, at best");
    for (const Goal& goal : kGoals) {
        const std::string sqlite = judge(goal.phase, kSqlite, true, goal.toSqlite);
        const std::string lmdb = judge(goal.phase, kLmdb, true, goal.toLmdb);
        const std::string best = judge(goal.phase, kLmdb, false, goal.toLmdbAtBest);
        fmt::print("{:30} {} {} {}\n", Name(goal.phase), sqlite, lmdb, best);
    }
    for (const Surcharge& surcharge : kSurcharges) {
        const double more =
            Median(kOursEach, surcharge.phase, clock) - Median(kOurs, surcharge.phase, clock);
        missed += more > surcharge.most ? 1 : 0;
        json->push_back({{"phase", Name(surcharge.phase)},
                         {"to", "lock held, ns more"},
                         {"must", true},
                         {"goal", surcharge.most},
                         {"ratio", more},
                         {"met", more <= surcharge.most}});
        fmt::print("{:30} {:.0f} ns more without the lock held, of {:.0f}: {}\n",
                   Name(surcharge.phase), more, surcharge.most,
                   more <= surcharge.most ? "met" : "MISSED");
    }
    return missed;
}

nlohmann::json Results::Json() const {
    nlohmann::json all = nlohmann::json::array();
    for (const std::string& store : stores_)
        for (const auto& [phase, times] : times_.at(store))
            all.push_back({{"store", store},
                           {"phase", Name(phase)},
                           {"cpu", times.cpu},
                           {"wall", times.wall},
                           {"cpuNs", MedianOf(times.cpu)},
                           {"wallNs", MedianOf(times.wall)}});
    return all;
}

}  // namespace bench
