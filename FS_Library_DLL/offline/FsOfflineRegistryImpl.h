// SPDX-License-Identifier: MIT
// The store that is a hive file which is never mounted.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include "FS_Library_DLL/IFSInterface.h"
#include "FS_Library_DLL/offline/ORHandleProxy.h"
#include "FS_Library_DLL/offline/OfflineHiveFile.h"
#include "FS_Library_DLL/offline/OfflineRegistryDll.h"

// The whole hive is in memory from FBR_InitialiseEx on; FBR_DeInitialiseEx writes it as a new file
// when it has changed, and nothing else touches the disk. A hive that could not be saved whole is
// read but not changed: every change of one whose sequence numbers differ, or of which the library
// could not read a part, is FSSTATUS_FILE_CORRUPT. Key handles are addresses of ORHandleProxy. Keys
// may be used from any thread; a rename while other calls are at work on the keys it touches is the
// caller's to prevent.
class FsOfflineRegistryImpl : public IFSInterface {
  public:
    FsOfflineRegistryImpl() = default;
    // Closes the hive when that was not done; changes are lost then.
    ~FsOfflineRegistryImpl() override;
    FsOfflineRegistryImpl(const FsOfflineRegistryImpl&) = delete;
    FsOfflineRegistryImpl& operator=(const FsOfflineRegistryImpl&) = delete;

    // Opens the hive file `path`. Where there is none a hive is made, with "FBRVersion" 2 at its
    // root, which reaches the disk when the store is closed. FSSTATUS_MODULE_NOT_FOUND without the
    // offline registry library; FSSTATUS_FAILED for a file that is not a hive;
    // FSSTATUS_SHARING_VIOLATION when others do not stop writing it.
    FBR_STATUS FBR_InitialiseEx(const WChar* path) override;
    // Saves what has changed: a new file is written beside the old one, and then takes its place.
    // A failure loses the changes and leaves the old file; it is FSSTATUS_SHARING_VIOLATION when
    // that is not the file any more that was read. Every handle is dead afterwards.
    FBR_STATUS FBR_DeInitialiseEx() override;
    FBR_STATUS FBR_CheckFile() override;
    FBR_STATUS FBR_IsCorrupted(uint32_t* corrupted) override;
    FBR_STATUS FBR_Compact(uint32_t* done) override;
    FBR_STATUS FBR_GetLockEx(uint32_t lockType) override;
    FBR_STATUS FBR_ReleaseLockEx(uint32_t lockType) override;
    FBR_STATUS FBR_GetLockTypeEx(uint32_t* lockType) override;

    FBR_STATUS FBR_DeleteValue(int64_t key, const WChar* name) override;
    FBR_STATUS FBR_SetValue(int64_t key, const WChar* name, uint32_t type, const void* data,
                            uint64_t size) override;
    // Nothing is copied when the value does not fit.
    FBR_STATUS FBR_QueryValue(int64_t key, const WChar* name, void* buffer, uint64_t bufferSize,
                              uint64_t* size, uint32_t* type) override;

    // Makes missing parents too. FSSTATUS_ALREADY_EXISTS comes with a handle to be closed.
    FBR_STATUS FBR_CreateDirEx(int64_t parent, const WChar* name, FBR_CREATEOPTIONS options,
                               int64_t* key) override;
    // A null parent and an empty name, or just a backslash, give the root's own handle.
    FBR_STATUS FBR_OpenDirEx(int64_t parent, const WChar* name, int64_t* key) override;
    FBR_STATUS FBR_DeleteDirEx(int64_t key) override;
    FBR_STATUS FBR_DeleteDirNamedEx(const WChar* name) override;
    // Copies the key to its new name and deletes the old one. Handles of keys in it, and `key`
    // itself, stand at their new places afterwards. Security is not copied. FSSTATUS_INVALID_NAME
    // when something in it has a name that cannot be told to the library; all stays then.
    FBR_STATUS FBR_RenameDirEx(int64_t key, const WChar* newName) override;
    FBR_STATUS FBR_CloseDirEx(int64_t key) override;

    // FSSTATUS_INVALID_NAME for a name that holds a zero: it would be taken for another one. The
    // next index goes on behind it, and the two that gather all names give it whole.
    FBR_STATUS FBR_EnumIntFileEx(int64_t key, uint32_t index, WChar** name) override;
    FBR_STATUS FBR_EnumIntDirEx(int64_t key, uint32_t index, WChar** name) override;
    FBR_STATUS FBR_GetName_DirEx(int64_t key, WChar** name) override;
    FBR_STATUS FBR_GetFullName_DirEx(int64_t key, WChar** name) override;
    FBR_STATUS FBR_DuplicateDirHandleEx(int64_t key, int64_t* newKey) override;
    FBR_STATUS FBR_GetDirTimesEx(int64_t key, FBR_SYSTEMTIME* time) override;
    // Both end with FSSTATUS_NO_MORE_ENTRIES when all names were gathered.
    FBR_STATUS FBR_EnumerateAllValues(int64_t key, std::vector<WString>& names) override;
    FBR_STATUS FBR_EnumerateAllKeys(int64_t key, std::vector<WString>& names) override;
    // Sizes count units with the terminator; FSSTATUS_BUFFER_OVERFLOW gives the one needed.
    FBR_STATUS FBR_GetKeySecurityString(int64_t key, WChar* buffer, uint32_t* bufferChars) override;
    // A hive in which nothing else has changed is not saved for this.
    FBR_STATUS FBR_SetKeySecurityString(int64_t key, const WChar* sddl) override;

  private:
    // Opens or makes a key below a parent; 0 or a Win32 error.
    using KeyFunction =
        std::function<uint32_t(ORHandleProxy& parent, const WString& name, ORHKEY& opened)>;
    // One name of an enumeration: the buffer's size in units goes in, the name's comes out.
    using NameFunction = std::function<uint32_t(uint32_t index, WChar* buffer, uint32_t* units)>;

    // A key that a rename moves: its handle at the new place, and what its path has below the old.
    struct Moved {
        ORHKEY handle = nullptr;
        WString rest;
    };
    using MovedKeys = std::map<HandleWrapper*, Moved>;

    uint32_t OpenHive(ORHKEY* hive);
    FBR_STATUS MakeHive();
    void CloseAll();
    FBR_STATUS RefuseChange() const;
    FBR_STATUS OutcomeOfChange(uint32_t error) const;
    FBR_STATUS MarkDirtyOn(uint32_t error);
    std::vector<ORHandleProxy*> AllProxies() const;

    FBR_STATUS OpenOrCreateKey(const KeyFunction& function, ORHandleProxy* parent,
                               const WChar* name, ORHandleProxy** opened);
    FBR_STATUS OpenKey(ORHandleProxy* parent, const WChar* name, ORHandleProxy** opened);
    FBR_STATUS CreateKey(ORHandleProxy* parent, const WChar* name, uint32_t options,
                         ORHandleProxy** opened, uint32_t* disposition);
    uint32_t CreateKeyPath(ORHandleProxy& parent, const WString& name, uint32_t options,
                           uint32_t* disposition, ORHKEY& opened);
    uint32_t OpenWhatExists(ORHandleProxy& parent, const WString& name, uint32_t* disposition,
                            ORHKEY& opened);
    FBR_STATUS Close(ORHandleProxy* proxy);

    FBR_STATUS GetIndexedName(const NameFunction& function, uint32_t index, uint32_t units,
                              WChar** name);
    FBR_STATUS EnumerateNames(const NameFunction& function, std::vector<WString>& names);
    FBR_STATUS GetKeyName(ORHandleProxy* key, WChar** name, bool wantFullPath);

    FBR_STATUS CopyKeyTree(ORHandleProxy* source, ORHandleProxy* target);
    FBR_STATUS CopyValues(ORHandleProxy* source, ORHandleProxy* target,
                          const std::vector<WString>& names);
    FBR_STATUS CopySubkey(ORHandleProxy* source, ORHandleProxy* target, const WString& name);
    FBR_STATUS DeleteTree(ORHandleProxy* key);
    uint32_t Probe(const ORHandleProxy& proxy) const;
    uint32_t OpenMoved(const WString& oldPath, const WString& newPath, MovedKeys* moved);
    void Move(const MovedKeys& moved, const WString& newPath);

    std::unique_ptr<ORHandleProxy> rootProxy_;  // null until the hive is open
    std::unique_ptr<OfflineRegistryDll> dll_;
    WString hivePath_;          // where the file really is
    offline::HiveMark read_;    // of the file that was read, or of none
    bool isUnsettled_ = false;  // its sequence numbers differ
    std::mutex lock_;           // guards the two sets and the strings of the proxies in them
    std::set<ORHandleProxy*> openKeys_;  // all that open and create made; not the root
    std::set<ORHandleProxy*> duplicates_;
    std::atomic<bool> dirty_ = false;  // there are changes to be saved
};
