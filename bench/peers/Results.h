// SPDX-License-Identifier: MIT
// What was measured, as tables for people and as JSON for the charts.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bench/peers/Work.h"

namespace bench {

enum class Clock { Cpu, Wall };

// Times of one operation, a round each, in the order in which stores and phases first came.
class Results {
  public:
    void Add(const std::string& store, Phase phase, const Sample& sample);
    // Median of the rounds; 0 where nothing was measured.
    double Median(const std::string& store, Phase phase, Clock clock) const;
    void Print(Clock clock, const std::vector<Phase>& phases) const;
    // Ours to theirs, and what was wanted; the number of goals that must be met and are not.
    int PrintGoals(Clock clock, nlohmann::json* json) const;
    nlohmann::json Json() const;

  private:
    struct Times {
        std::vector<double> cpu, wall;
    };
    std::vector<std::string> stores_;
    std::map<std::string, std::map<Phase, Times>> times_;
};

}  // namespace bench
