// SPDX-License-Identifier: MIT
// An open store on a cluster: what its operations share.
#pragma once

#include <unistd.h>

#include "FS_Library_DLL/cluster/Gathered.h"
#include "FS_Library_DLL/cluster/KeptReads.h"
#include "FS_Library_DLL/cluster/OpenKeys.h"
#include "FS_Library_DLL/cluster/StoreLock.h"

namespace cluster {

// The names of the values, or of the subkeys, of one key.
enum class Kind { Values, Children };
struct Listing {
    std::string id;
    std::string place;  // that the key was opened at, see PlaceText
    Kind kind;
    std::vector<WString> names;
    int64_t time = 0;  // the revision of the key's time, which changes with each change in the key
};

// What a walk saw of a child, which the next one looks at again together with all of its way.
struct SeenChild {
    Child child;
    int64_t modified = 0;
};

class ClusterStore {
  public:
    ClusterStore(std::shared_ptr<const EtcdSettings> settings, std::string prefix);
    ~ClusterStore() { leases.ForgetAll(); }
    ClusterStore(const ClusterStore&) = delete;
    ClusterStore& operator=(const ClusterStore&) = delete;

    const std::shared_ptr<const EtcdSettings> settings;
    const RecordNames names;
    LeaseKeeper leases;
    StoreLock storeLock;

    // False in a child that was forked since: what is here is the parent's, and a thread that is
    // not there may hold its locks.
    bool IsOurs() const { return process_ == getpid(); }
    // In such a child: closes its sockets and leaves all else as it is, for ever.
    static void Leave(std::unique_ptr<ClusterStore> store);

    // Held by each operation from its beginning to its end, but for a wait for the store's lock.
    platform::Mutex lock;
    OpenKeys keys ZRFS_GUARDED_BY(lock);
    std::vector<Listing> listings ZRFS_GUARDED_BY(lock);                    // the last few
    std::unordered_map<std::string, SeenChild> seen ZRFS_GUARDED_BY(lock);  // by their records
    int64_t volatileLease ZRFS_GUARDED_BY(lock) = 0;  // 0: no volatile key was made
    bool isDamaged ZRFS_GUARDED_BY(lock) = false;     // a record was met that is none
    // Whether there is a root, as far as it is known: the first lock for changes makes one.
    bool isMade ZRFS_GUARDED_BY(lock) = false;

    // For all but changes. What is gathered is made before.
    EtcdApi& Api() ZRFS_REQUIRES(lock);
    // FSSTATUS_LOCK_FAILED without a lock for changes, and when it was lost; whether the change
    // was made is then, and after FSSTATUS_FAILED, not known.
    FBR_STATUS Commit(Change* change) ZRFS_REQUIRES(lock);
    // The same, and where changes are gathered only by SendGathered at the latest.
    FBR_STATUS CommitSoon(Change* change) ZRFS_REQUIRES(lock);
    // From now on, or until now. What fails of them is answered by SendGathered, and by all
    // changes that come before it.
    void Gather(bool gathers) ZRFS_REQUIRES(lock);
    FBR_STATUS SendGathered() ZRFS_REQUIRES(lock);
    // What is kept, null when it cannot be relied on.
    KeptReads* Kept() ZRFS_REQUIRES(lock);
    // From now on all that is read is of one state, as under the lock; until as many calls ended
    // it. Under the lock it does nothing.
    void Snapshot(bool begins) ZRFS_REQUIRES(lock);
    // Whether what hangs on that lease goes with another store, whoever has the lock: it is not
    // kept.
    bool MayGo(int64_t lease) const ZRFS_REQUIRES(lock) {
        return lease != 0 && lease != volatileLease && !InSnapshot();
    }
    // Forgets what was read of a key that changes.
    void DropListings(const std::string& id) ZRFS_REQUIRES(lock);

    FBR_STATUS StatusOf(Outcome outcome) const ZRFS_REQUIRES(lock);
    // Tells of a record that is none.
    FBR_STATUS Damaged(const std::string& record) ZRFS_REQUIRES(lock);

  private:
    bool InSnapshot() const ZRFS_REQUIRES(lock) { return snapshot_ > 0 && storeLock.Type() == 0; }
    FBR_STATUS Make(Change* change) ZRFS_REQUIRES(lock);
    bool FindFence(Fence* fence) ZRFS_REQUIRES(lock);
    FBR_STATUS Settle(const Fence& fence, const std::string& change, const RangeReply& record,
                      bool* again) ZRFS_REQUIRES(lock);

    const pid_t process_ = getpid();
    EtcdApi api_ ZRFS_GUARDED_BY(lock);
    KeptReads kept_ ZRFS_GUARDED_BY(lock);
    bool gathers_ ZRFS_GUARDED_BY(lock) = false;
    Gathered gathered_ ZRFS_GUARDED_BY(lock);
    int64_t gatheredUnder_ ZRFS_GUARDED_BY(lock) = 0;  // a lease: no other lock makes them
    FBR_STATUS gatheredStatus_ ZRFS_GUARDED_BY(lock) = FSSTATUS_SUCCESS;
    int64_t keptUnder_ ZRFS_GUARDED_BY(lock) = 0;  // a lease, or a snapshot below 0
    int snapshot_ ZRFS_GUARDED_BY(lock) = 0;       // how many want one
    int64_t snapshots_ ZRFS_GUARDED_BY(lock) = 0;  // that were begun
    uint64_t changes_ ZRFS_GUARDED_BY(lock) = 0;
};

}  // namespace cluster
