// SPDX-License-Identifier: MIT
// An open store on a cluster: what its operations share.
#pragma once

#include "FS_Library_DLL/cluster/KeptReads.h"
#include "FS_Library_DLL/cluster/OpenKeys.h"
#include "FS_Library_DLL/cluster/StoreLock.h"

namespace cluster {

// One change: it is made as a whole, under the store's lock, or not at all.
struct Change {
    std::vector<Compare> compares;
    std::vector<Operation> operations;
    // Where a compare of the caller's fails, nothing is changed, and these are answered.
    std::vector<Operation> onConflict = {};
    bool isConflict = false;
    std::vector<RangeReply> answers = {};
    int64_t revision = 0;

    bool Fits(size_t more) const { return operations.size() + more < kMostOperations; }
};

// The names of the values, or of the subkeys, of one key.
enum class Kind { Values, Children };
struct Listing {
    std::string id;
    Kind kind;
    std::vector<WString> names;
    int64_t time = 0;  // the revision of the key's time, which changes with each change in the key
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

    // Held by each operation from its beginning to its end, but for a wait for the store's lock.
    platform::Mutex lock;
    EtcdApi api ZRFS_GUARDED_BY(lock);
    OpenKeys keys ZRFS_GUARDED_BY(lock);
    std::vector<Listing> listings ZRFS_GUARDED_BY(lock);  // the last few
    int64_t volatileLease ZRFS_GUARDED_BY(lock) = 0;      // 0: no volatile key was made
    bool isDamaged ZRFS_GUARDED_BY(lock) = false;         // a record was met that is none

    // FSSTATUS_LOCK_FAILED without a lock for changes, and when it was lost; whether the change
    // was made is then, and after FSSTATUS_FAILED, not known.
    FBR_STATUS Commit(Change* change) ZRFS_REQUIRES(lock);
    // What is kept, null when it cannot be relied on.
    KeptReads* Kept() ZRFS_REQUIRES(lock);
    // Forgets what was read of a key that changes.
    void DropListings(const std::string& id) ZRFS_REQUIRES(lock);

    FBR_STATUS StatusOf(Outcome outcome) const;
    // Tells of a record that is none.
    FBR_STATUS Damaged(const std::string& record) ZRFS_REQUIRES(lock);

  private:
    bool FindFence(Fence* fence) ZRFS_REQUIRES(lock);
    FBR_STATUS Settle(const Fence& fence, const std::string& change, const RangeReply& record,
                      bool* again) ZRFS_REQUIRES(lock);

    KeptReads kept_ ZRFS_GUARDED_BY(lock);
    int64_t keptUnder_ ZRFS_GUARDED_BY(lock) = 0;
    uint64_t changes_ ZRFS_GUARDED_BY(lock) = 0;
};

}  // namespace cluster
