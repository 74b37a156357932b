#include "tests/sharing/Driver.h"

#include <cstdlib>
#include <sstream>

namespace sharing {
namespace {

Words WithUser(const std::string& user, const std::string& role, const std::string& report,
               const Words& words) {
    Words all = user.empty() ? Words() : Words{user, role};
    all.push_back(report);
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

}  // namespace

bool LongForm() {
    return std::getenv("ZRFS_LONG_TESTS") != nullptr;
}

int MixTime(int shortForm) {
    return LongForm() ? 60000 : shortForm;
}

int64_t NowMs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

void Tally::Wrong(const std::string& what) {
    if (Good()) first = what;
    ++wrong;
}

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

bool Tally::Did(FBR_STATUS status, const std::string& what) {
    if (!Went(status, what)) return false;
    ++done;
    return true;
}

std::string Tally::Line() const {
    std::ostringstream out;
    out << done << " done, " << busy << " busy, " << failed << " failed, " << wrong << " wrong";
    if (!first.empty()) out << "; " << first;
    return out.str();
}

void Tally::Add(const Tally& other) {
    if (Good()) first = other.first;
    done += other.done;
    busy += other.busy;
    failed += other.failed;
    wrong += other.wrong;
}

int PlayRole(RoleBody body, const std::vector<std::string>& arguments) {
    Tally tally;
    try {
        body(Words(arguments.begin() + 1, arguments.end()), &tally);
    } catch (const std::exception& error) {
        tally.Wrong(std::string("exception: ") + error.what());
    }
    std::ofstream out(arguments[0]);
    out << tally.done << ' ' << tally.busy << ' ' << tally.failed << ' ' << tally.wrong << ' '
        << tally.first << '\n';
    return tally.Good() ? 0 : 1;
}

Player::Player(const std::string& role, const Words& words, const std::filesystem::path& report,
               const std::string& user)
    : name(role),
      report_(report),
      process_(user.empty() ? role : "sharing-as", WithUser(user, role, report.string(), words)) {}

std::optional<Tally> Player::Finish() {
    if (!ended_) process_.Wait();
    ended_ = true;
    std::ifstream in(report_);
    Tally tally;
    if (!(in >> tally.done >> tally.busy >> tally.failed >> tally.wrong)) return std::nullopt;
    std::getline(in >> std::ws, tally.first);
    return tally;
}

std::optional<Tally> Player::FinishSoon() {
    if (WaitForFile(report_.string())) return Finish();
    Kill();
    return std::nullopt;
}

Troupe::Troupe() {
    std::filesystem::permissions(dir_.Path(), std::filesystem::perms::all);
}

Player* Troupe::Start(const std::string& role, const Words& words, const std::string& user) {
    const auto report = dir_ / ("report" + std::to_string(++started_));
    players_.push_back(std::make_unique<Player>(role, words, report, user));
    return players_.back().get();
}

Tally Troupe::FinishWell() {
    Tally all;
    for (const auto& player : players_) {
        const std::optional<Tally> tally = player->Finish();
        if (!tally) {
            ADD_FAILURE() << player->name << " crashed";
            continue;
        }
        EXPECT_TRUE(tally->Good()) << player->name << ": " << tally->Line();
        EXPECT_GT(tally->done, 0u) << player->name << ": " << tally->Line();
        // A store in use may say so where its users crowd, but not as a rule.
        EXPECT_LE(tally->busy * 20, tally->done + 20) << player->name << ": " << tally->Line();
        if (LongForm()) std::printf("  %-24s %s\n", player->name.c_str(), tally->Line().c_str());
        all.Add(*tally);
    }
    players_.clear();
    return all;
}

bool WaitForFile(const std::string& path) {
    return support::Eventually([&] { return std::filesystem::exists(path); });
}

}  // namespace sharing
