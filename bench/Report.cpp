// SPDX-License-Identifier: MIT
#include "bench/Report.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace bench {

double Timer::NowNs() {
    if (cpuClock_) return static_cast<double>(std::clock()) * (1e9 / CLOCKS_PER_SEC);
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double, std::nano>(now).count();
}

void Timer::Stop(uint64_t operations) {
    const double ns = NowNs() - start_;
    totalNs_ += ns;
    operations_ += operations;
    if (operations > 0) perOperation_.push_back(ns / static_cast<double>(operations));
}

double Timer::MedianNs() const {
    if (perOperation_.empty()) return 0;
    std::vector<double> sorted = perOperation_;
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<ptrdiff_t>(sorted.size() / 2),
                     sorted.end());
    return sorted[sorted.size() / 2];
}

double Timer::MeanNs() const {
    return operations_ == 0 ? 0 : totalNs_ / static_cast<double>(operations_);
}

Report::Report(double writeNs, double readNs) : writeNs_(writeNs), readNs_(readNs) {
    std::printf("bare write of a 512-byte page  %8.0f ns\n", writeNs);
    std::printf("bare read of a 512-byte page   %8.0f ns\n\n", readNs);
    std::printf("%-44s %10s %10s %9s  %s\n", "operation", "median ns", "mean ns", "multiple",
                "goal");
}

void Report::Line(const std::string& what, const Timer& timer, Unit unit, double goal) {
    const double multiple = timer.MedianNs() / (unit == Unit::PageWrites ? writeNs_ : readNs_);
    std::printf("%-44s %10.0f %10.0f %9.1f  ", what.c_str(), timer.MedianNs(), timer.MeanNs(),
                multiple);
    const char* of = unit == Unit::PageWrites ? "page writes" : "page reads";
    if (goal > 0) {
        std::printf("%.0f %s: %s\n", goal, of, multiple <= goal ? "met" : "MISSED");
        missed_ += multiple > goal ? 1 : 0;
    } else {
        std::printf("(%s)\n", of);
    }
    std::fflush(stdout);
}

}  // namespace bench
