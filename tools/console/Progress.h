// SPDX-License-Identifier: MIT
// A progress bar on standard error, drawn on a terminal only, with the time that is left where that
// can be told.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace fbr {

class Progress {
  public:
    // `what` is said in front of the bar. A `total` of 0 means that it is not known: the steps
    // done are then counted.
    enum class Unit { kSteps, kBytes };
    Progress(std::string what, uint64_t total, Unit unit = Unit::kSteps);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // No bar is drawn from now on.
    static void Hide();
    // True when a bar is.
    static bool Shows();
    // Not this one.
    void HideThis();

    // One more step done. Draws at most ten times a second.
    void Step() { At(done_ + 1); }
    // So many steps done.
    void At(uint64_t done);

    // Wipes the line, so that a message can follow. The next step draws it again.
    void Clear();

  private:
    class Wiper;

    void Draw() const;
    std::string TimeLeft() const;

    const std::string what_;
    const uint64_t total_;
    const Unit unit_;
    // Of the standard streams: what is said there wipes the line first.
    std::unique_ptr<Wiper> output_, error_;  // none for a bar that is not drawn
    const std::chrono::steady_clock::time_point begin_;
    uint64_t done_ = 0;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point next_;
};

}  // namespace fbr
