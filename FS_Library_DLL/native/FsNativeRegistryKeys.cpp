// SPDX-License-Identifier: MIT
// Opening and creating keys, and the upkeep of the root key.
#include <algorithm>

#include "FS_Library_DLL/native/FsNativeRegistryImpl.h"
#include "FS_Library_DLL/native/NativeBuffer.h"
#include "FS_Library_DLL/native/NativeStatus.h"
#include "FS_Library_DLL/registry/CombinePath.h"

namespace {

constexpr ACCESS_MASK kKeyAccess = KEY_ALL_ACCESS;
// DUPLICATE_SAME_ACCESS and DUPLICATE_SAME_ATTRIBUTES.
constexpr ULONG kSameAccessAndAttributes = 6;

bool IsRootName(const WChar* name) {
    return name[0] == L'\0' || (name[0] == L'\\' && name[1] == L'\0');
}

// The name as it stands below the root: one leading backslash is the caller's to write.
const WChar* RelativeName(const WChar* name) {
    return name[0] == L'\\' && name[1] != L'\0' ? name + 1 : name;
}

HANDLE ThisProcess() {
    return reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));
}

}  // namespace

FBR_STATUS FsNativeRegistryImpl::FBR_CreateDirEx(int64_t parent, const WChar* name,
                                                 FBR_CREATEOPTIONS options, int64_t* key) {
    if (name == nullptr || key == nullptr) return FSSTATUS_INVALID_PARAMETER;
    ULONG disposition = 0;
    HANDLE created = nullptr;
    NTSTATUS status;
    if (parent != 0) {
        status = CreateKeyWithParents(name, options, &disposition, nt::ToHandle(parent), &created);
    } else if (pathOnly_) {
        status = CreateKeyWithParents(FullPath(name), options, &disposition, nullptr, &created);
    } else {
        status = CreateBelowRoot(name, options, &disposition, &created);
    }
    if (!NT_SUCCESS(status)) return nt::ToFsStatus(status);
    *key = nt::ToKey(created);
    return disposition == REG_OPENED_EXISTING_KEY && !IsRootName(name) ? FSSTATUS_ALREADY_EXISTS
                                                                       : nt::ToFsStatus(status);
}

FBR_STATUS FsNativeRegistryImpl::FBR_OpenDirEx(int64_t parent, const WChar* name, int64_t* key) {
    if (name == nullptr || key == nullptr) return FSSTATUS_INVALID_PARAMETER;
    HANDLE opened = nullptr;
    NTSTATUS status;
    if (parent != 0) {
        status = OpenKey(name, nt::ToHandle(parent), &opened);
    } else if (pathOnly_) {
        status = OpenKey(FullPath(name).c_str(), nullptr, &opened);
    } else {
        status = OpenBelowRoot(name, &opened);
    }
    if (NT_SUCCESS(status)) *key = nt::ToKey(opened);
    return nt::ToFsStatus(status);
}

NTSTATUS FsNativeRegistryImpl::CreateKey(const WChar* path, ULONG options, ULONG* disposition,
                                         HANDLE root, HANDLE* key) {
    nt::ObjectName name(*ntDll_, path, root);
    return nt::Call(ntDll_->ZwCreateKey, key, kKeyAccess, name.Get(), ULONG{0},
                    static_cast<PUNICODE_STRING>(nullptr), options, disposition);
}

NTSTATUS FsNativeRegistryImpl::OpenKey(const WChar* path, HANDLE root, HANDLE* key) {
    nt::ObjectName name(*ntDll_, path, root);
    return nt::Call(ntDll_->ZwOpenKey, key, kKeyAccess, name.Get());
}

NTSTATUS FsNativeRegistryImpl::Duplicate(HANDLE key, HANDLE* copy) {
    return nt::Call(ntDll_->ZwDuplicateObject, ThisProcess(), key, ThisProcess(), copy,
                    ACCESS_MASK{0}, ULONG{0}, kSameAccessAndAttributes);
}

void FsNativeRegistryImpl::Close(HANDLE key) {
    if (key != nullptr && ntDll_->ZwClose != nullptr) ntDll_->ZwClose(key);
}

// Creates the key that `path` names below `root` (null: an absolute path) and its missing
// parents, all with the same options. The disposition is that of the last key.
NTSTATUS FsNativeRegistryImpl::CreateKeyWithParents(const WString& path, ULONG options,
                                                    ULONG* disposition, HANDLE root, HANDLE* key) {
    const NTSTATUS status = CreateKey(path.c_str(), options, disposition, root, key);
    if (status != nt::kObjectNameNotFound) return status;
    return CreateParts(path, options, disposition, root, key);
}

NTSTATUS FsNativeRegistryImpl::CreateParts(const WString& path, ULONG options, ULONG* disposition,
                                           HANDLE root, HANDLE* key) {
    WString running(root == nullptr ? L"\\" : L"");
    NTSTATUS status = nt::kObjectNameNotFound;
    HANDLE last = nullptr;
    bool denied = false;
    for (size_t begin = 0; begin < path.size();) {
        const size_t end = std::min(path.find(L'\\', begin), path.size());
        const WString part = path.substr(begin, end - begin);
        begin = end + 1;
        if (part.empty()) continue;
        Close(last);
        last = nullptr;
        running = CombinePath(running, part);
        status = CreateKey(running.c_str(), options, disposition, root, &last);
        if (NT_SUCCESS(status)) continue;
        last = nullptr;
        // A key that may not be opened with full access may still have a child that may be.
        if (status != nt::kAccessDenied) break;
        denied = true;
    }
    if (!NT_SUCCESS(status)) return denied ? nt::kAccessDenied : status;
    *key = last;
    return status;
}

NTSTATUS FsNativeRegistryImpl::EnsureRootKey() {
    if (rootKey_ != nullptr) return nt::kSuccess;
    return CreateKeyWithParents(rootPath_, 0, nullptr, nullptr, &rootKey_);
}

NTSTATUS FsNativeRegistryImpl::ReopenRootKey() {
    CloseRootKey();
    return EnsureRootKey();
}

void FsNativeRegistryImpl::CloseRootKey() {
    Close(rootKey_);
    rootKey_ = nullptr;
}

// Runs an operation on the root key and, when someone deleted that key, makes the key anew and
// runs the operation once more.
template <class Operation>
NTSTATUS FsNativeRegistryImpl::WithRootKey(Operation operation) {
    NTSTATUS status = EnsureRootKey();
    if (!NT_SUCCESS(status)) return status;
    status = operation();
    if (status != nt::kKeyDeleted) return status;
    status = ReopenRootKey();
    return NT_SUCCESS(status) ? operation() : status;
}

NTSTATUS FsNativeRegistryImpl::CreateBelowRoot(const WChar* name, ULONG options, ULONG* disposition,
                                               HANDLE* key) {
    if (IsRootName(name)) return DuplicateRootKey(key);
    const WString relative = RelativeName(name);
    return WithRootKey(
        [&] { return CreateKeyWithParents(relative, options, disposition, rootKey_, key); });
}

NTSTATUS FsNativeRegistryImpl::OpenBelowRoot(const WChar* name, HANDLE* key) {
    if (IsRootName(name)) return DuplicateRootKey(key);
    return WithRootKey([&] { return OpenKey(RelativeName(name), rootKey_, key); });
}

// A handle of a deleted key can be duplicated like any other, so the key is asked first whether
// it still lives.
NTSTATUS FsNativeRegistryImpl::DuplicateRootKey(HANDLE* key) {
    return WithRootKey([&] {
        const NTSTATUS status = ProbeRootKey();
        return status == nt::kKeyDeleted ? status : Duplicate(rootKey_, key);
    });
}

NTSTATUS FsNativeRegistryImpl::ProbeRootKey() {
    constexpr ULONG kNodeInformation = 1;
    uint8_t answer[32];
    ULONG needed = 0;
    return nt::Call(ntDll_->ZwQueryKey, rootKey_, kNodeInformation, static_cast<PVOID>(answer),
                    ULONG{sizeof answer}, &needed);
}

WString FsNativeRegistryImpl::FullPath(const WChar* name) const {
    const bool joined = name[0] == L'\0' || name[0] == L'\\';
    return rootPath_ + (joined ? L"" : L"\\") + name;
}
