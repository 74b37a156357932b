// SPDX-License-Identifier: MIT
// The store that is a hive file, mounted below HKEY_USERS while it is open.
#pragma once

#include "FS_Library_DLL/native/FsNativeRegistryImpl.h"

class UnImpersonator;

// Between FBR_InitialiseEx and FBR_DeInitialiseEx everything is the live registry's. The mount is
// the machine's: stores with the same mount name share it, and the first to close unloads it if no
// key in it is open. The process needs the privileges of a backup operator; they are taken for the
// time of an operation only.
class FsHiveRegistryImpl : public FsNativeRegistryImpl {
  public:
    explicit FsHiveRegistryImpl(const WString& mountName);

    // `path` is the hive file, made when it is missing, with its folder. A name that is mounted
    // already is used as it is, whatever file stands behind it; a plain key of that name gives
    // FSSTATUS_ALREADY_EXISTS. May throw w32utils::basic_w32_runtime_error.
    FBR_STATUS FBR_InitialiseEx(const WChar* path) override;
    // Unloads the hive and removes the files that the system left beside it. A hive in which a key
    // is open is tried once more by way of the helper process; when that fails too, it stays
    // mounted and the failure is the result. The destructor alone unloads nothing.
    FBR_STATUS FBR_DeInitialiseEx() override;

    // Removes the files beside a hive whose names begin with the hive's. `path` is the hive's in
    // the kernel's form. What cannot be removed is logged and left.
    static void CleanupOSGeneratedHiveFiles(const WString& path);

  private:
    WString MountPath() const;
    FBR_STATUS OpenHiveFile(const UnImpersonator& caller);
    FBR_STATUS ProvideHiveFile(const UnImpersonator& caller);
    FBR_STATUS MakeHiveFile(HANDLE callersToken, bool isMissing);
    FBR_STATUS UseExistingMount();
    FBR_STATUS ServeMount();
    FBR_STATUS CreateHive(const WString& path, HKEY key);
    FBR_STATUS LoadHive(HKEY root, const WString& mount, const WString& path);
    FBR_STATUS UnLoadHive(const WString& mount);
    DWORD UnmountHiveAndCleanGeneratedFiles(const WString& mount);
    static WString HiveFileNameForKey(const WString& key);

    WString hiveFile_;
    WString mountName_;
};
