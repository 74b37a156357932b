// SPDX-License-Identifier: MIT
// Timing by medians, and the lines of the report.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// Times of batches of one operation.
class Timer {
  public:
    void Start() { start_ = NowNs(); }
    // Ends a batch of `operations`.
    void Stop(uint64_t operations);
    // Median over the batches of the time for one operation; the mean over all operations.
    double MedianNs() const;
    double MeanNs() const;

    // For all timers: the time that this process runs instead of the time that passes.
    static void UseCpuClock(bool use) { cpuClock_ = use; }

  private:
    static double NowNs();

    static inline bool cpuClock_ = false;
    double start_ = 0;
    std::vector<double> perOperation_;
    double totalNs_ = 0;
    uint64_t operations_ = 0;
};

enum class Unit { PageWrites, PageReads };

class Report {
  public:
    Report(double writeNs, double readNs);
    // One operation; a goal of 0 is none.
    void Line(const std::string& what, const Timer& timer, Unit unit, double goal);
    // Goals that were missed by the medians.
    int Missed() const { return missed_; }

  private:
    double writeNs_, readNs_;
    int missed_ = 0;
};

}  // namespace bench
