// SPDX-License-Identifier: MIT
// Roles that are played in processes of their own, and what they report.
#pragma once

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "include/ZrFsLibrary.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"

namespace sharing {

using Words = std::vector<std::string>;

// True with ZRFS_LONG_TESTS in the environment.
inline bool LongForm() {
    return std::getenv("ZRFS_LONG_TESTS") != nullptr;
}
// How long a mix of roles runs, in milliseconds.
inline int MixTime(int shortForm) {
    return LongForm() ? 60000 : shortForm;
}
// Milliseconds since a moment that all processes share.
inline int64_t NowMs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}
inline void Pause(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// What a role did. One that could not begin, or that was killed, has no tally.
struct Tally {
    uint64_t done = 0;
    uint64_t busy = 0;    // answers that the store is in use
    uint64_t failed = 0;  // other statuses that should not be
    uint64_t wrong = 0;   // answers that are not true
    std::string first;    // the first of the failed and wrong ones

    void Wrong(const std::string& what) {
        if (Good()) first = what;
        ++wrong;
    }
    // Counts the answer to an operation; true for success.
    bool Did(FBR_STATUS status, const std::string& what) {
        const bool did = Went(status, what);
        done += did;
        return did;
    }
    // The same without counting what is done.
    bool Went(FBR_STATUS status, const std::string& what);
    bool Good() const { return failed == 0 && wrong == 0; }
    std::string Line() const;
    void Add(const Tally& other);
};

// A role, to be defined at namespace scope: what it is told is what Troupe::Start was given.
struct Role : support::ChildRole {
    using Body = void (*)(const Words& words, Tally* tally);
    Role(const char* name, Body body);
};

class Player {
  public:
    Player(const std::string& role, const Words& words, const std::filesystem::path& report,
           const std::string& user);
    // Waits for the end of the role. No tally when it crashed.
    std::optional<Tally> Finish();
    bool HasReported() const { return std::filesystem::exists(report_); }
    // It is to do something, and nothing wrong; what it did. If `soon`, one that hangs is killed.
    Tally FinishWell(bool soon = false);
    void Kill() {
        process_.Kill();
        ended_ = true;
    }

  private:
    const std::string name_;
    std::filesystem::path report_;
    bool ended_ = false;
    support::ChildProcess process_;
};

// The players of one test, with a folder that every user may write.
class Troupe {
  public:
    Troupe();
    std::string Folder() const { return dir_.Path().string(); }
    std::string File(const std::string& file) const { return (dir_ / file).string(); }
    // `user` is a user's number, for those who may change theirs.
    Player* Start(const std::string& role, const Words& words, const std::string& user = {});
    // Waits for all; every one must have done something, and nothing wrong.
    void FinishWell() {
        for (const auto& player : players_) player->FinishWell();
        players_.clear();
    }

  private:
    support::TempDir dir_;
    std::vector<std::unique_ptr<Player>> players_;
    int started_ = 0;
};

// Waits for the file that a role makes when it has come to its point.
inline bool WaitForFile(const std::string& path) {
    return support::Eventually([&] { return std::filesystem::exists(path); });
}

}  // namespace sharing
