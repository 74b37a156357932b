// SPDX-License-Identifier: MIT
#include "tests/sharing/Driver.h"

#include <sstream>

namespace sharing {
namespace {

// The role's words: the file for its report, and what it is told.
int Report(Role::Body body, const Words& words) {
    Tally tally;
    try {
        body(Words(words.begin() + 1, words.end()), &tally);
    } catch (const std::exception& error) {
        tally.Wrong(std::string("exception: ") + error.what());
    }
    std::ofstream(words[0]) << tally.Line() << '\n';
    return tally.Good() ? 0 : 1;
}

Words With(Words first, const Words& rest) {
    first.insert(first.end(), rest.begin(), rest.end());
    return first;
}

}  // namespace

Role::Role(const char* name, Body body)
    : ChildRole(name, [body](const Words& words) { return Report(body, words); }) {}

bool Tally::Went(FBR_STATUS status, const std::string& what) {
    if (status == FSSTATUS_SUCCESS) return true;
    if (status == FSSTATUS_LOCK_FAILED) {
        ++busy;
        return false;
    }
    if (Good()) first = what + " answers " + std::to_string(status);
    ++failed;
    return false;
}

std::string Tally::Line() const {
    std::ostringstream out;
    out << done << " done, " << busy << " busy, " << failed << " failed, " << wrong << " wrong; "
        << first;
    return out.str();
}

void Tally::Add(const Tally& other) {
    if (Good()) first = other.first;
    done += other.done;
    busy += other.busy;
    failed += other.failed;
    wrong += other.wrong;
}

Player::Player(const std::string& role, const Words& words, const std::filesystem::path& report,
               const std::string& user)
    : name_(role),
      report_(report),
      process_(
          user.empty() ? role : "as",
          With(user.empty() ? Words{report.string()} : Words{user, role, report.string()}, words)) {
}

std::optional<Tally> Player::Finish() {
    if (!ended_) process_.Wait();
    ended_ = true;
    std::ifstream in(report_);
    Tally tally;
    std::string word;
    if (!(in >> tally.done >> word >> tally.busy >> word >> tally.failed >> word >> tally.wrong))
        return std::nullopt;
    std::getline(in >> word >> std::ws, tally.first);
    return tally;
}

Tally Player::FinishWell(bool soon) {
    if (soon && !WaitForFile(report_.string())) Kill();
    const std::optional<Tally> tally = Finish();
    EXPECT_TRUE(tally.has_value()) << name_ << (soon ? " hangs" : " crashed");
    if (!tally) return {};
    EXPECT_TRUE(tally->Good() && tally->done > 0) << name_ << ": " << tally->Line();
    // A store in use may say so where its users crowd, but not as a rule.
    EXPECT_LE(tally->busy * 20, tally->done + 20) << name_ << ": " << tally->Line();
    if (LongForm()) std::printf("  %-24s %s\n", name_.c_str(), tally->Line().c_str());
    return *tally;
}

Troupe::Troupe() {
    std::filesystem::permissions(dir_.Path(), std::filesystem::perms::all);
}

Player* Troupe::Start(const std::string& role, const Words& words, const std::string& user) {
    const auto report = dir_ / ("report" + std::to_string(++started_));
    players_.push_back(std::make_unique<Player>(role, words, report, user));
    return players_.back().get();
}

}  // namespace sharing
