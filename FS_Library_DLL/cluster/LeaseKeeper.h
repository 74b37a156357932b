// SPDX-License-Identifier: MIT
// Keeps leases alive. This is the one thread that the library starts: it is there while a store on
// a cluster has its lock or a volatile key, and calls nothing of the caller's.
#pragma once

#include <condition_variable>
#include <map>
#include <optional>
#include <thread>

#include "FS_Library_DLL/cluster/EtcdApi.h"
#include "platform/ThreadAnnotations.h"

namespace cluster {

class LeaseKeeper {
  public:
    explicit LeaseKeeper(std::shared_ptr<const EtcdSettings> settings)
        : settings_(std::move(settings)), life_(settings_->lease) {}
    ~LeaseKeeper() { ForgetAll(); }
    LeaseKeeper(const LeaseKeeper&) = delete;
    LeaseKeeper& operator=(const LeaseKeeper&) = delete;

    // From now on, for as long as it is wanted; `granted` is when it was asked for. Throws
    // std::system_error without a thread.
    using IsWanted = bool (*)(const void* asker);
    void Keep(int64_t lease, Clock::time_point granted, IsWanted isWanted = nullptr,
              const void* asker = nullptr);
    // It lives on for as long as it was last kept alive.
    void Forget(int64_t lease);
    void ForgetAll();
    // As of EtcdHttp, in the child of a fork: the thread is not there.
    void CloseSockets() {
        if (api_ != nullptr) api_->CloseSockets();
    }

    // Whether the cluster cannot have taken it yet.
    bool IsAlive(int64_t lease) const;
    // Whether the cluster said that it did, or it was not wanted any more.
    bool IsLost(int64_t lease) const;

  private:
    struct Kept {
        Clock::time_point until;
        IsWanted isWanted = nullptr;
        const void* asker = nullptr;
        bool isLost = false;
    };
    void Run();
    bool BeatOnce();
    void EndThread();

    const std::shared_ptr<const EtcdSettings> settings_;
    const std::chrono::seconds life_;  // of a lease that is not kept alive
    platform::Mutex threadLock_;       // before the other: who starts or ends the thread
    std::optional<std::thread> thread_ ZRFS_GUARDED_BY(threadLock_);
    std::unique_ptr<EtcdApi> api_;  // the thread's own while it runs, but for Interrupt
    mutable platform::Mutex lock_;
    std::condition_variable changed_;
    std::map<int64_t, Kept> leases_ ZRFS_GUARDED_BY(lock_);
    bool ends_ ZRFS_GUARDED_BY(lock_) = false;
};

}  // namespace cluster
