// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/StoreLock.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <set>

#include "FS_Library_DLL/LockWait.h"
#include "Shared/logging/Logger.h"
#include "platform/LockWaitLimit.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/StoreLock"

using platform::Mutex;
using platform::MutexGuard;
using platform::MutexWait;
using Varnhold::Hob::Detail::kError;

namespace cluster {
namespace {

constexpr Milliseconds kLockPatience{8000};
constexpr Milliseconds kLongestWatch{5000};
constexpr Milliseconds kLookAtOwner{300};

// Who of this process has which locks: one that a thread has through another store would never
// come free for it.
Mutex g_holdersLock;
std::set<std::pair<std::string, pid_t>> g_holders ZRFS_GUARDED_BY(g_holdersLock);

// A child begins with none, whatever another thread was about at the fork.
[[maybe_unused]] const int g_forks = pthread_atfork(
    +[]() ZRFS_NO_ANALYSIS { g_holdersLock.lock(); },
    +[]() ZRFS_NO_ANALYSIS { g_holdersLock.unlock(); },
    +[]() ZRFS_NO_ANALYSIS {
        g_holders.clear();
        g_holdersLock.unlock();
    });

// Of a request for the lock; one that was answered did not get it.
FBR_STATUS StatusOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::Answered:
            return FSSTATUS_LOCK_FAILED;
        case Outcome::Denied:
            return FSSTATUS_ACCESS_DENIED;
        default:
            return FSSTATUS_FAILED;
    }
}

bool IsMine(const std::string& holder) {
    const MutexGuard guard(g_holdersLock);
    return g_holders.contains({holder, gettid()});
}

void Remember(const std::string& holder, pid_t thread, bool holds) {
    const MutexGuard guard(g_holdersLock);
    if (holds)
        g_holders.insert({holder, thread});
    else
        g_holders.erase({holder, thread});
}

}  // namespace

FBR_STATUS StoreLock::Take(uint32_t type, bool* isLeft) {
    *isLeft = false;
    if (type < FBR_LOCK_WRITE || type > FBR_LOCK_READ) return FSSTATUS_LOCK_FAILED;
    const auto until = Clock::now() + Milliseconds(platform::LockWaitOf(LockWaitMilliseconds()));
    const pid_t me = gettid();
    std::optional<Fence> left;  // by a thread that ended
    {
        MutexWait wait(lock_);
        if (isTaken_ && owner_ == me) {
            if (isLost_) return FSSTATUS_LOCK_FAILED;
            types_.push_back(type);
            return FSSTATUS_SUCCESS;
        }
        if (isTaken_ && OwnerLives() && LockWaitCallback() != nullptr) LockWaitCallback()();
        while (isTaken_ && OwnerLives()) {
            if (Clock::now() >= until) return FSSTATUS_LOCK_FAILED;
            freed_.wait_until(wait.native, std::min(until, Clock::now() + kLookAtOwner));
        }
        left.swap(fence_);
        if (left) Remember(left->record.holder, owner_, false);
        isTaken_ = true;
        owner_ = me;
        isLost_ = false;
        types_.assign(1, 0);  // none is in force yet
    }
    if (left) GiveBack(left->lease);
    const FBR_STATUS status = Acquire(until, isLeft);
    const MutexGuard guard(lock_);
    if (status == FSSTATUS_SUCCESS) {
        types_.assign(1, type);
    } else {
        isTaken_ = false;
        types_.clear();
        freed_.notify_one();
    }
    return status;
}

bool StoreLock::OwnerLives() const {
    return tgkill(getpid(), owner_, 0) == 0 || errno != ESRCH;
}

Outcome StoreLock::TryOnce(const Fence& wanted, TransactionReply* reply) {
    Transaction transaction;
    const std::string name = names_.Lock();
    transaction.compares = {{Compare::What::Created, Compare::How::Equal, {name}, 0}};
    transaction.ifTrue = {Put(name, LockText(wanted.record, platform::UtcNow()), wanted.lease),
                          Get(names_.AllGone(), 1)};
    transaction.ifFalse = {Get({name})};
    return api_->Do(transaction, reply);
}

// False when the record is somebody else's.
bool StoreLock::MakeFence(const KeyValue& record, const Fence& wanted) {
    LockRecord found;
    if (!ReadLock(record.value, &found) || found.holder != wanted.record.holder) return false;
    const MutexGuard guard(lock_);
    fence_ = wanted;
    fence_->created = record.created;
    fence_->modified = record.modified;
    return true;
}

// Tries at once, and whenever the record goes, for as long as there is patience. The lease is kept
// alive meanwhile.
FBR_STATUS StoreLock::Acquire(Clock::time_point until, bool* isLeft) {
    if (api_ == nullptr) api_ = std::make_unique<EtcdApi>(settings_);
    EtcdApi& api = *api_;
    api.SetPatience(std::clamp(std::chrono::ceil<Milliseconds>(until - Clock::now()),
                               Milliseconds(2000), kLockPatience));
    Fence wanted;
    wanted.record.holder = NewId();
    const auto asked = Clock::now();
    const Outcome granted = api.Grant(settings_->lease, &wanted.lease);
    if (granted != Outcome::Answered) return StatusOf(granted);
    try {
        leases_.Keep(
            wanted.lease, asked,
            [](const void* lock) { return static_cast<const StoreLock*>(lock)->OwnerLives(); },
            this);
    } catch (const std::exception&) {
        api.Revoke(wanted.lease);
        return FSSTATUS_FAILED;
    }
    FBR_STATUS status = FSSTATUS_LOCK_FAILED;
    for (bool told = false;; told = true) {
        TransactionReply reply;
        const Outcome outcome = TryOnce(wanted, &reply);
        status = StatusOf(outcome);
        if (outcome != Outcome::Answered) break;
        KeyValue record;
        if (reply.isTrue)
            record = {names_.Lock(), LockText(wanted.record, {}), reply.revision, reply.revision};
        else if (!reply.results[0].found.empty())
            record = reply.results[0].found[0];
        if (MakeFence(record, wanted)) {
            Remember(wanted.record.holder, gettid(), true);
            *isLeft = !reply.isTrue || !reply.results[1].found.empty();
            return FSSTATUS_SUCCESS;
        }
        LockRecord other;
        if (record.created != 0) {
            if (!ReadLock(record.value, &other)) {
                ZRFS_LOG(kError, "StoreLock::Acquire",
                         "The record {} at {} is no lock of a store: delete it", names_.Lock(),
                         settings_->Endpoints());
                status = FSSTATUS_FILE_CORRUPT;
                break;
            }
            if (IsMine(other.holder)) break;
        }
        const auto left = std::chrono::floor<Milliseconds>(until - Clock::now());
        if (left.count() <= 0) break;
        if (!told && LockWaitCallback() != nullptr) LockWaitCallback()();
        if (api.WaitFor(Events::Deletions, {{names_.Lock()}}, reply.revision + 1,
                        std::min(left, kLongestWatch)) == Outcome::Denied) {
            status = FSSTATUS_ACCESS_DENIED;
            break;
        }
    }
    leases_.Forget(wanted.lease);
    api.Revoke(wanted.lease);
    return status;
}

FBR_STATUS StoreLock::Release() {
    {
        const MutexGuard guard(lock_);
        if (!isTaken_ || owner_ != gettid()) return FSSTATUS_LOCK_FAILED;
        const bool isLost = isLost_ || (fence_ && leases_.IsLost(fence_->lease));
        if (!isLost) types_.pop_back();
        if (!isLost && !types_.empty()) return FSSTATUS_SUCCESS;
    }
    return Drop();
}

FBR_STATUS StoreLock::Drop() {
    std::optional<Fence> fence;
    bool isLost = false;
    {
        const MutexGuard guard(lock_);
        if (!isTaken_) return FSSTATUS_LOCK_FAILED;
        types_.clear();
        fence.swap(fence_);
        isLost = !fence || isLost_;
        if (fence) Remember(fence->record.holder, owner_, false);
    }
    const FBR_STATUS status = fence ? GiveBack(fence->lease) : FSSTATUS_LOCK_FAILED;
    const MutexGuard guard(lock_);
    isTaken_ = false;
    freed_.notify_one();
    return isLost ? FSSTATUS_LOCK_FAILED : status;
}

// A cluster that is not there takes it when its time is over.
FBR_STATUS StoreLock::GiveBack(int64_t lease) {
    const bool isLost = leases_.IsLost(lease);
    leases_.Forget(lease);
    if (isLost) return FSSTATUS_LOCK_FAILED;
    api_->SetPatience(Milliseconds(3000));
    switch (api_->Revoke(lease)) {
        case Outcome::Answered:
            return FSSTATUS_SUCCESS;
        case Outcome::NoSuchLease:
            return FSSTATUS_LOCK_FAILED;
        default:
            return FSSTATUS_FAILED;
    }
}

uint32_t StoreLock::Type() const {
    const MutexGuard guard(lock_);
    return types_.empty() ? 0 : types_.back();
}

std::optional<Fence> StoreLock::FenceOfChange() const {
    const MutexGuard guard(lock_);
    const uint32_t type = types_.empty() ? 0 : types_.back();
    const bool mayWrite = type == FBR_LOCK_WRITE || type == FBR_LOCK_WRITE_OWNER;
    if (!mayWrite || isLost_ || !fence_ || leases_.IsLost(fence_->lease)) return std::nullopt;
    return fence_;
}

int64_t StoreLock::Certain() const {
    const MutexGuard guard(lock_);
    return fence_ && !isLost_ && leases_.IsAlive(fence_->lease) ? fence_->lease : 0;
}

void StoreLock::Moved(int64_t lease, int64_t modified, std::string change) {
    const MutexGuard guard(lock_);
    if (!fence_ || fence_->lease != lease) return;
    fence_->modified = modified;
    fence_->record.change = std::move(change);
}

void StoreLock::Lost(int64_t lease) {
    const MutexGuard guard(lock_);
    if (fence_ && fence_->lease == lease) isLost_ = true;
}

}  // namespace cluster
