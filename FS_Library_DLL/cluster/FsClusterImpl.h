// SPDX-License-Identifier: MIT
// The store that is kept on a cluster.
#pragma once

#include "FS_Library_DLL/IFSInterface.h"
#include "FS_Library_DLL/SharedStore.h"
#include "FS_Library_DLL/cluster/ClusterStore.h"

// What is answered was agreed upon by a majority of the cluster's members, and every change is one
// transaction of theirs, under the store's lock. A cluster that does not answer is waited for, 5
// seconds at the opening and 12 later unless ZRFS_ETCD_PATIENCE says less; the answer is
// FSSTATUS_FAILED then, and the log names its members. Keys may be used from any thread; calls run
// one at a time. In a child that a process forks, closing leaves the lock and the volatile keys to
// the parent, and everything else answers FSSTATUS_FAILED.
class FsClusterImpl : public IFSInterface, public SharedStore {
  public:
    FsClusterImpl() = default;
    // Gives up the lock and the volatile keys when that was not done.
    ~FsClusterImpl() override;
    FsClusterImpl(const FsClusterImpl&) = delete;
    FsClusterImpl& operator=(const FsClusterImpl&) = delete;

    // `path` is HOST:PORT[,HOST:PORT...]/PREFIX; a store that is missing is empty, and made by the
    // first lock for changes. FSSTATUS_NOT_IMPLEMENTED where there is no libcurl;
    // FSSTATUS_INVALID_NAME for another path; FSSTATUS_VERSION_MISMATCH for a store of another
    // layout; FSSTATUS_ACCESS_DENIED where the cluster does not know us, or a file that the
    // settings name cannot be read; FSSTATUS_INVALID_PARAMETER where a setting is none.
    FBR_STATUS FBR_InitialiseEx(const WChar* path) override;
    FBR_STATUS FBR_DeInitialiseEx() override;
    FBR_STATUS FBR_CheckFile() override;
    FBR_STATUS FBR_IsCorrupted(uint32_t* corrupted) override;
    // Deletes what writers that died left behind.
    FBR_STATUS FBR_Compact(uint32_t* done) override;
    FBR_STATUS FBR_GetLockEx(uint32_t lockType) override;
    FBR_STATUS FBR_ReleaseLockEx(uint32_t lockType) override;
    FBR_STATUS FBR_GetLockTypeEx(uint32_t* lockType) override;

    FBR_STATUS FBR_DeleteValue(int64_t key, const WChar* name) override;
    FBR_STATUS FBR_SetValue(int64_t key, const WChar* name, uint32_t type, const void* data,
                            uint64_t size) override;
    FBR_STATUS FBR_QueryValue(int64_t key, const WChar* name, void* buffer, uint64_t bufferSize,
                              uint64_t* size, uint32_t* type) override;

    FBR_STATUS FBR_CreateDirEx(int64_t parent, const WChar* name, FBR_CREATEOPTIONS options,
                               int64_t* key) override;
    FBR_STATUS FBR_OpenDirEx(int64_t parent, const WChar* name, int64_t* key) override;
    FBR_STATUS FBR_DeleteDirEx(int64_t key) override;
    FBR_STATUS FBR_DeleteDirNamedEx(const WChar* name) override;
    FBR_STATUS FBR_RenameDirEx(int64_t key, const WChar* newName) override;
    FBR_STATUS FBR_CloseDirEx(int64_t key) override;

    FBR_STATUS FBR_EnumIntFileEx(int64_t key, uint32_t index, WChar** name) override;
    FBR_STATUS FBR_EnumIntDirEx(int64_t key, uint32_t index, WChar** name) override;
    FBR_STATUS FBR_GetName_DirEx(int64_t key, WChar** name) override;
    FBR_STATUS FBR_GetFullName_DirEx(int64_t key, WChar** name) override;
    FBR_STATUS FBR_DuplicateDirHandleEx(int64_t key, int64_t* newKey) override;
    FBR_STATUS FBR_GetDirTimesEx(int64_t key, FBR_SYSTEMTIME* time) override;
    FBR_STATUS FBR_EnumerateAllValues(int64_t key, std::vector<WString>& names) override;
    FBR_STATUS FBR_EnumerateAllKeys(int64_t key, std::vector<WString>& names) override;
    FBR_STATUS FBR_GetKeySecurityString(int64_t key, WChar* buffer, uint32_t* bufferChars) override;
    FBR_STATUS FBR_SetKeySecurityString(int64_t key, const WChar* sddl) override;

    bool IsMade() override;
    void Gather(bool gathers) override;
    FBR_STATUS SendGathered() override;
    void Snapshot(bool begins) override;
    FBR_STATUS CurrentState(uint64_t* state) override;
    FBR_STATUS WaitForChange(uint64_t state, const std::function<bool()>& goesOn) override;

  private:
    FBR_STATUS Open(const WChar* path);
    FBR_STATUS EnumerateOne(int64_t key, uint32_t index, cluster::Kind kind, WChar** name);
    FBR_STATUS EnumerateAll(int64_t key, cluster::Kind kind, std::vector<WString>& names);
    FBR_STATUS CopyName(int64_t key, bool wantsPath, WChar** name);
    template <class Operation>
    FBR_STATUS Locked(Operation operation);
    template <class Operation>
    FBR_STATUS WithKey(int64_t key, FBR_STATUS notOpen, Operation operation);
    template <class Operation>
    FBR_STATUS WithBase(int64_t parent, Operation operation);
    FBR_STATUS GiveUp();
    FBR_STATUS AfterLock(bool isLeft);

    std::unique_ptr<cluster::ClusterStore> store_;  // null until it is open
};
