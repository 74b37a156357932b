// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/LeaseKeeper.h"

#include <csignal>
#include <exception>

using platform::MutexGuard;
using platform::MutexWait;

namespace cluster {
namespace {

constexpr Milliseconds kBeatAfterFailure{500};
constexpr Milliseconds kBeatPatience{3000};

// The host's handlers of signals are for its own threads: one that starts now gets none.
class AllSignalsBlocked {
  public:
    AllSignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &before_);
    }
    ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

  private:
    sigset_t before_;
};

}  // namespace

void LeaseKeeper::Keep(int64_t lease, Clock::time_point granted, IsWanted isWanted,
                       const void* asker) {
    const MutexGuard threadGuard(threadLock_);
    {
        const MutexGuard guard(lock_);
        leases_[lease] = {granted + life_, isWanted, asker};
        ends_ = false;
    }
    if (thread_) return;
    try {
        api_ = std::make_unique<EtcdApi>(settings_);
        api_->SetPatience(kBeatPatience);
        const AllSignalsBlocked noSignals;
        thread_.emplace([this] { Run(); });
    } catch (const std::exception&) {
        const MutexGuard guard(lock_);
        leases_.erase(lease);
        throw;
    }
}

void LeaseKeeper::Forget(int64_t lease) {
    const MutexGuard threadGuard(threadLock_);
    {
        const MutexGuard guard(lock_);
        leases_.erase(lease);
        if (!leases_.empty()) return;
        ends_ = true;
    }
    EndThread();
}

void LeaseKeeper::ForgetAll() {
    const MutexGuard threadGuard(threadLock_);
    {
        const MutexGuard guard(lock_);
        leases_.clear();
        ends_ = true;
    }
    EndThread();
}

void LeaseKeeper::EndThread() {
    threadLock_.AssertHeld();  // by the callers
    if (!thread_) return;
    api_->Interrupt();
    changed_.notify_all();
    thread_->join();
    thread_.reset();
    api_.reset();
}

bool LeaseKeeper::IsAlive(int64_t lease) const {
    const MutexGuard guard(lock_);
    const auto found = leases_.find(lease);
    return found != leases_.end() && !found->second.isLost && Clock::now() < found->second.until;
}

bool LeaseKeeper::IsLost(int64_t lease) const {
    const MutexGuard guard(lock_);
    const auto found = leases_.find(lease);
    return found == leases_.end() || found->second.isLost;
}

// False when one of them could not be kept alive.
bool LeaseKeeper::BeatOnce() {
    std::map<int64_t, Kept> leases;
    {
        const MutexGuard guard(lock_);
        leases = leases_;
    }
    bool all = true;
    for (auto& [lease, kept] : leases) {
        if (kept.isLost) continue;
        const auto asked = Clock::now();
        const bool isWanted = kept.isWanted == nullptr || kept.isWanted(kept.asker);
        const Outcome outcome = isWanted ? api_->KeepAlive(lease) : Outcome::NoSuchLease;
        const MutexGuard guard(lock_);
        const auto found = leases_.find(lease);
        if (found == leases_.end()) continue;
        if (outcome == Outcome::Answered)
            found->second.until = asked + life_;
        else if (outcome == Outcome::NoSuchLease)
            found->second.isLost = true;
        else
            all = false;
    }
    return all;
}

void LeaseKeeper::Run() {
    const Milliseconds beat = Milliseconds(life_) / 3;
    Milliseconds pause = beat;
    for (;;) {
        {
            MutexWait wait(lock_);
            const auto until = Clock::now() + pause;
            while (!ends_ && changed_.wait_until(wait.native, until) != std::cv_status::timeout) {
            }
            if (ends_) return;
        }
        try {
            pause = BeatOnce() ? beat : kBeatAfterFailure;
        } catch (const std::bad_alloc&) {
            pause = kBeatAfterFailure;
        }
    }
}

}  // namespace cluster
