// SPDX-License-Identifier: MIT
// The store that is a key of the live registry, reached through the native functions.
#pragma once

#include <memory>

#include "FS_Library_DLL/IFSInterface.h"
#include "FS_Library_DLL/registry/NtDllFunctions.h"

namespace nt {
class Buffer;
}

// Key handles are kernel handles and stay the caller's: they are not tracked, and outlive the
// store. Names and values pass through unchanged. There is no lock: keys may be used from any
// thread, but the first use of the root, and its return after a deletion, belong to one thread.
class FsNativeRegistryImpl : public IFSInterface {
  public:
    // With `pathOnly` no handle of the root is ever held: every open and create without a parent
    // works on the full path.
    explicit FsNativeRegistryImpl(bool pathOnly);
    ~FsNativeRegistryImpl() override;
    FsNativeRegistryImpl(const FsNativeRegistryImpl&) = delete;
    FsNativeRegistryImpl& operator=(const FsNativeRegistryImpl&) = delete;

    // `path` is the kernel's name of the root key, such as \registry\user\x. The registry is not
    // touched: the root comes into being at its first use.
    FBR_STATUS FBR_InitialiseEx(const WChar* path) override;
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
    // A value longer than the buffer gives the bytes that fit and FSSTATUS_BUFFER_OVERFLOW, or
    // success where the value was so small that one query had it whole; compare `size`.
    FBR_STATUS FBR_QueryValue(int64_t key, const WChar* name, void* buffer, uint64_t bufferSize,
                              uint64_t* size, uint32_t* type) override;

    // Makes missing parents too. FSSTATUS_ALREADY_EXISTS comes with a handle to be closed.
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
    // Meaningful for keys below the root only.
    FBR_STATUS FBR_GetFullName_DirEx(int64_t key, WChar** name) override;
    FBR_STATUS FBR_DuplicateDirHandleEx(int64_t key, int64_t* newKey) override;
    FBR_STATUS FBR_GetDirTimesEx(int64_t key, FBR_SYSTEMTIME* time) override;
    // Both end with FSSTATUS_NO_MORE_ENTRIES when all names were gathered.
    FBR_STATUS FBR_EnumerateAllValues(int64_t key, std::vector<WString>& names) override;
    FBR_STATUS FBR_EnumerateAllKeys(int64_t key, std::vector<WString>& names) override;
    FBR_STATUS FBR_GetKeySecurityString(int64_t key, WChar* buffer, uint32_t* bufferChars) override;
    FBR_STATUS FBR_SetKeySecurityString(int64_t key, const WChar* sddl) override;

  protected:
    const NtDllFunctions& NtDll() const { return *ntDll_; }
    void CloseRootKey();

  private:
    // A store within this one; never made in this system.
    struct NestedStore {
        FBR_STATUS status = FSSTATUS_SUCCESS;
        IFSInterface* store = nullptr;
        ~NestedStore();
    };
    using EnumerateFunction = decltype(NtDllFunctions::ZwEnumerateKey);
    struct NameLayout;

    NTSTATUS CreateKey(const WChar* path, ULONG options, ULONG* disposition, HANDLE root,
                       HANDLE* key);
    NTSTATUS CreateKeyWithParents(const WString& path, ULONG options, ULONG* disposition,
                                  HANDLE root, HANDLE* key);
    NTSTATUS CreateParts(const WString& path, ULONG options, ULONG* disposition, HANDLE root,
                         HANDLE* key);
    NTSTATUS OpenKey(const WChar* path, HANDLE root, HANDLE* key);
    NTSTATUS Duplicate(HANDLE key, HANDLE* copy);
    void Close(HANDLE key);

    NTSTATUS EnsureRootKey();
    NTSTATUS ReopenRootKey();
    NTSTATUS ProbeRootKey();
    template <class Operation>
    NTSTATUS WithRootKey(Operation operation);
    NTSTATUS CreateBelowRoot(const WChar* name, ULONG options, ULONG* disposition, HANDLE* key);
    NTSTATUS OpenBelowRoot(const WChar* name, HANDLE* key);
    NTSTATUS DuplicateRootKey(HANDLE* key);
    WString FullPath(const WChar* name) const;

    NTSTATUS QueryFullValue(HANDLE key, const WChar* name, nt::Buffer& buffer, ULONG* needed);
    NTSTATUS QueryKeyInformation(HANDLE key, ULONG kind, uint32_t firstBytes, nt::Buffer& buffer);
    NTSTATUS QueryKeyName(HANDLE key, WString& name);
    NTSTATUS EnumerateOne(EnumerateFunction enumerate, const NameLayout& layout, int64_t key,
                          uint32_t index, WChar** name);
    NTSTATUS EnumerateAll(EnumerateFunction enumerate, const NameLayout& layout, int64_t key,
                          std::vector<WString>& names);

    HANDLE rootKey_ = nullptr;
    NtDllFunctions* ntDll_;
    WString rootPath_;
    bool pathOnly_;
    std::unique_ptr<NestedStore> nestedStore_;
    // Nothing depends on it: every version is used the same way.
    [[maybe_unused]] bool isVistaOrLater_;
};
