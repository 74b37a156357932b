// SPDX-License-Identifier: MIT
#include "tools/console/Progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <streambuf>

#include "tools/console/Console.h"

namespace fbr {
namespace {

constexpr auto kInterval = std::chrono::milliseconds(100);
constexpr int kCells = 30;
constexpr uint64_t kMegabyte = 1'000'000;
bool g_hidden = false;

}  // namespace

// A stream flushes what it is tied to before it writes.
class Progress::Wiper : public std::streambuf {
  public:
    Wiper(Progress& progress, std::ostream& of)
        : progress_(progress), of_(of), stream_(this), before_(of.tie(&stream_)) {}
    ~Wiper() override { of_.tie(before_); }

  protected:
    int sync() override {
        if (before_ != nullptr) before_->flush();
        progress_.Clear();
        return 0;
    }

  private:
    Progress& progress_;
    std::ostream& of_;
    std::ostream stream_;
    std::ostream* const before_;
};

// Work that is over within the first interval shows nothing at all.
Progress::Progress(std::string what, uint64_t total, Unit unit)
    : what_(std::move(what)),
      total_(total),
      unit_(unit),
      begin_(std::chrono::steady_clock::now()),
      next_(begin_ + kInterval) {
    if (!Shows()) return;
    output_ = std::make_unique<Wiper>(*this, std::cout);
    error_ = std::make_unique<Wiper>(*this, std::cerr);
}

bool Progress::Shows() {
    return ErrorIsTerminal() && !g_hidden;
}

void Progress::HideThis() {
    Clear();
    error_.reset();
    output_.reset();
}

void Progress::Hide() {
    g_hidden = true;
}

Progress::~Progress() {
    HideThis();
}

void Progress::At(uint64_t done) {
    done_ = done;
    if (!output_) return;
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return;
    next_ = now + kInterval;
    Draw();
    drawn_ = true;
}

void Progress::Draw() const {
    std::string line = "\r\x1b[K" + what_ + " ";
    if (total_ == 0) {
        line += fmt::format("{}", done_);
    } else {
        const uint64_t done = std::min(done_, total_);
        const auto full = static_cast<int>(kCells * done / total_);
        for (int i = 0; i < kCells; ++i) line += i < full ? "\u2588" : "\u2591";
        line += fmt::format(" {:3}%  ", 100 * done / total_);
        if (unit_ == Unit::kBytes)
            line += fmt::format("{} of {} MB", done / kMegabyte, total_ / kMegabyte + 1);
        else
            line += fmt::format("{} of {}", done, total_);
        line += TimeLeft();
    }
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

// Nothing in the first second, which tells little of those to come.
std::string Progress::TimeLeft() const {
    using namespace std::chrono;
    const double gone = duration<double>(steady_clock::now() - begin_).count();
    if (gone < 1 || done_ == 0 || done_ >= total_) return "";
    const double part = static_cast<double>(done_) / static_cast<double>(total_);
    const auto left = static_cast<uint64_t>(gone / part - gone) + 1;
    return left < 60 ? fmt::format("  {} s left", left)
                     : fmt::format("  {} min left", left / 60 + 1);
}

void Progress::Clear() {
    if (!drawn_) return;
    std::fputs("\r\x1b[K", stderr);
    std::fflush(stderr);
    drawn_ = false;
}

}  // namespace fbr
