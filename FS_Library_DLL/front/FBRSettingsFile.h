// SPDX-License-Identifier: MIT
// The settings file over any store.
#pragma once

#include "FS_Library_DLL/IFSInterface.h"
#include "include/IFBRSettingsFile.h"

// An open store, closed when it goes.
class OpenedStore {
  public:
    OpenedStore(const WString& path, FBR_METHOD method);
    ~OpenedStore();
    OpenedStore(const OpenedStore&) = delete;
    OpenedStore& operator=(const OpenedStore&) = delete;

    FBR_STATUS status = FSSTATUS_FAILED;
    IFSInterface* store = nullptr;
};

// The write lock of a store, released when it goes.
class HeldLock {
  public:
    explicit HeldLock(IFSInterface* store);
    ~HeldLock();
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;

    IFSInterface* const store;
    const FBR_STATUS status;
};

class FBRSettingsFile : public IFBRSettingsFile {
  public:
    FBRSettingsFile(const String& path, FBR_METHOD method);
    ~FBRSettingsFile() override;

    FBR_STATUS Create(bool overwrite) override;
    FBR_STATUS Open() override;
    FBR_STATUS EnumerateKeys(const String& path, Strings& names) override;
    FBR_STATUS EnumerateValues(const String& path, Strings& names) override;
    bool KeyExists(const String& path) override;
    bool ValueExists(const String& path, const String& name) override;
    FBR_STATUS GetDword(const String& path, const String& name, uint32_t& value) override;
    FBR_STATUS GetQword(const String& path, const String& name, uint64_t& value) override;
    FBR_STATUS GetString(const String& path, const String& name, String& value) override;
    FBR_STATUS GetMultiString(const String& path, const String& name, Strings& values) override;
    FBR_STATUS GetBinary(const String& path, const String& name, Bytes& value) override;
    FBR_STATUS DeleteValue(const String& path, const String& name) override;
    FBR_STATUS DeleteKey(const String& path, bool recursive) override;
    FBR_STATUS MarkKeyDeleted(const String& path) override;
    FBR_STATUS CreateKey(const String& path) override;
    FBR_STATUS SetString(const String& path, const String& name, const String& value,
                         bool createKey) override;
    FBR_STATUS RenameKey(const String& path, const String& newName) override;
    FBR_STATUS GetRawValue(const String& path, const String& name, Bytes& value,
                           uint32_t* type) override;
    FBR_STATUS SetRawValue(const String& path, const String& name, const Bytes& value,
                           uint32_t type) override;

  private:
    IFSInterface* Interface() const { return store_ != nullptr ? store_->store : nullptr; }
    bool IsFileBased() const;
    void Release();
    FBR_STATUS OpenAndLock();

    std::unique_ptr<OpenedStore> store_;
    String path_;
    std::unique_ptr<HeldLock> lock_;  // null when none is held
    FBR_METHOD method_;
};
