// SPDX-License-Identifier: MIT
#include "tools/console/Progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include "tools/console/Console.h"

namespace fbr {
namespace {

constexpr auto kInterval = std::chrono::milliseconds(100);
constexpr int kCells = 30;
bool g_hidden = false;

}  // namespace

// Work that is over within the first interval shows nothing at all.
Progress::Progress(std::string what, uint64_t total)
    : what_(std::move(what)),
      total_(total),
      visible_(ErrorIsTerminal() && !g_hidden),
      next_(std::chrono::steady_clock::now() + kInterval) {}

void Progress::Hide() {
    g_hidden = true;
}

Progress::~Progress() {
    Clear();
}

void Progress::At(uint64_t done) {
    done_ = done;
    if (!visible_) return;
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
        line += fmt::format(" {:3}%  {} of {}", 100 * done / total_, done, total_);
    }
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

void Progress::Clear() {
    if (!drawn_) return;
    std::fputs("\r\x1b[K", stderr);
    std::fflush(stderr);
    drawn_ = false;
}

}  // namespace fbr
