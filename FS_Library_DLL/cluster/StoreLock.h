// SPDX-License-Identifier: MIT
// The lock of a store on a cluster: a record that hangs on a lease of its holder, and goes with it.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <optional>
#include <vector>

#include "FS_Library_DLL/cluster/ClusterRecords.h"
#include "FS_Library_DLL/cluster/LeaseKeeper.h"
#include "include/ZrFsTypes.h"

namespace cluster {

// What a change compares and writes, so that it is made under the lock or not at all, and once: the
// record of the lock is written by each of them. A request that comes late meets another record.
struct Fence {
    int64_t lease = 0;
    int64_t created = 0;   // revisions of the record
    int64_t modified = 0;  // 0: not known
    LockRecord record;
};

class StoreLock {
  public:
    StoreLock(std::shared_ptr<const EtcdSettings> settings, const RecordNames& names,
              LeaseKeeper& leases)
        : settings_(std::move(settings)), names_(names), leases_(leases) {}
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;

    // As FBR_GetLockEx and FBR_ReleaseLockEx; FSSTATUS_ACCESS_DENIED where the cluster denies it,
    // and FSSTATUS_FAILED where it does not answer or has no more space. Who releases a lock that
    // was lost has none any more, however often he took it, and is told FSSTATUS_LOCK_FAILED. The
    // lock of a thread that ended falls to the next one who wants it, of other processes when the
    // lease is over. `isLeft` tells whether a deletion was left that did not come to its end. A
    // wait holds nothing that others of this store might want.
    FBR_STATUS Take(uint32_t type, bool* isLeft);
    FBR_STATUS Release();
    // Whatever thread has it; others may take it then. FSSTATUS_LOCK_FAILED when it was lost
    // before, FSSTATUS_FAILED when it may only end with its lease.
    FBR_STATUS Drop();
    // As of EtcdHttp, in the child of a fork.
    void CloseSockets() {
        if (api_ != nullptr) api_->CloseSockets();
    }

    uint32_t Type() const;  // 0 for none
    // Nothing when no lock that allows changes is in force, or when it was lost.
    std::optional<Fence> FenceOfChange() const;
    // The lease, when it is certain that nobody else can have changed anything; 0 otherwise.
    int64_t Certain() const;
    // What became of the fence.
    void Moved(int64_t lease, int64_t modified, std::string change);
    void Lost(int64_t lease);

  private:
    FBR_STATUS Acquire(Clock::time_point until, bool* isLeft);
    bool OwnerLives() const;
    Outcome TryOnce(const Fence& wanted, TransactionReply* reply);
    bool MakeFence(const KeyValue& record, const Fence& wanted);
    FBR_STATUS GiveBack(int64_t lease);

    const std::shared_ptr<const EtcdSettings> settings_;
    const RecordNames& names_;
    LeaseKeeper& leases_;
    std::unique_ptr<EtcdApi> api_;  // used by whoever has isTaken_
    mutable platform::Mutex lock_;
    std::condition_variable freed_;
    bool isTaken_ ZRFS_GUARDED_BY(lock_) = false;
    std::atomic<pid_t> owner_ = 0;  // the thread, as the system knows it; set under lock_
    std::vector<uint32_t> types_ ZRFS_GUARDED_BY(lock_);  // the one taken last is in force
    std::optional<Fence> fence_ ZRFS_GUARDED_BY(lock_);
    bool isLost_ ZRFS_GUARDED_BY(lock_) = false;
};

}  // namespace cluster
