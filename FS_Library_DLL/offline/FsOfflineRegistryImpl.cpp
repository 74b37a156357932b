// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/offline/FsOfflineRegistryImpl.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "FS_Library_DLL/FsSwitches.h"
#include "FS_Library_DLL/offline/FileTime.h"
#include "FS_Library_DLL/offline/OfflineProxies.h"
#include "FS_Library_DLL/offline/OfflineSecurity.h"
#include "FS_Library_DLL/registry/CombinePath.h"
#include "FS_Library_DLL/registry/KeyTreeDeleter.h"

using namespace offline;

namespace {

WString Trimmed(const WChar* name) {
    WString trimmed(name);
    if (trimmed.size() > 1 && trimmed.front() == '\\') trimmed.erase(0, 1);
    if (trimmed.size() > 1 && trimmed.back() == '\\') trimmed.pop_back();
    return trimmed;
}

bool IsRootName(const WString& name) {
    return name.empty() || name == WTEXT("\\");
}

}  // namespace

FBR_STATUS FsOfflineRegistryImpl::FBR_CheckFile() {
    return g_switches.fileChecking ? FSSTATUS_SUCCESS : FSSTATUS_FAILED;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_IsCorrupted(uint32_t* corrupted) {
    if (corrupted != nullptr) *corrupted = 0;
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_Compact(uint32_t* done) {
    if (done != nullptr) *done = 1;
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_GetLockEx(uint32_t /*lockType*/) {
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_ReleaseLockEx(uint32_t /*lockType*/) {
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_GetLockTypeEx(uint32_t* /*lockType*/) {
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_DeleteValue(int64_t key, const WChar* name) {
    if (key == 0) return FSSTATUS_INVALID_PARAMETER;
    if (const FBR_STATUS refused = RefuseChange(); refused != FSSTATUS_SUCCESS) return refused;
    return MarkDirtyOn(dll_->ORDeleteValue(AsProxy(key)->Handle(), name));
}

FBR_STATUS FsOfflineRegistryImpl::FBR_SetValue(int64_t key, const WChar* name, uint32_t type,
                                               const void* data, uint64_t size) {
    if (key == 0 || size > std::numeric_limits<uint32_t>::max()) return FSSTATUS_INVALID_PARAMETER;
    if (const FBR_STATUS refused = RefuseChange(); refused != FSSTATUS_SUCCESS) return refused;
    return MarkDirtyOn(
        dll_->ORSetValue(AsProxy(key)->Handle(), name, type, data, static_cast<uint32_t>(size)));
}

FBR_STATUS FsOfflineRegistryImpl::FBR_QueryValue(int64_t key, const WChar* name, void* buffer,
                                                 uint64_t bufferSize, uint64_t* size,
                                                 uint32_t* type) {
    if (key == 0) return FSSTATUS_INVALID_PARAMETER;
    auto bytes =
        static_cast<uint32_t>(std::min<uint64_t>(bufferSize, std::numeric_limits<uint32_t>::max()));
    const uint32_t error =
        dll_->ORGetValue(AsProxy(key)->Handle(), nullptr, name, type, buffer, &bytes);
    if (size != nullptr) {
        *size = bytes;
        if (error == 0 && buffer == nullptr && bytes != 0) return FSSTATUS_BUFFER_OVERFLOW;
    }
    return ToStatus(error == kErrorMoreData ? kErrorBufferOverflow : error);
}

FBR_STATUS FsOfflineRegistryImpl::OpenOrCreateKey(const KeyFunction& function,
                                                  ORHandleProxy* parent, const WChar* name,
                                                  ORHandleProxy** opened) {
    const WString trimmed = Trimmed(name);
    if (parent == nullptr && IsRootName(trimmed)) {
        *opened = rootProxy_.get();
        return FSSTATUS_SUCCESS;
    }
    ORHandleProxy& base = parent != nullptr ? *parent : *rootProxy_;
    ORHKEY raw = nullptr;
    const uint32_t error = function(base, trimmed, raw);
    if (error != 0) return ToStatus(error);
    const std::lock_guard guard(lock_);
    auto proxy = std::make_unique<ORHandleProxy>(base, raw, trimmed);
    openKeys_.insert(proxy.get());
    *opened = proxy.release();
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsOfflineRegistryImpl::OpenKey(ORHandleProxy* parent, const WChar* name,
                                          ORHandleProxy** opened) {
    return OpenOrCreateKey(
        [this](ORHandleProxy& base, const WString& path, ORHKEY& raw) {
            return dll_->OROpenKey(base.Handle(), path.c_str(), &raw);
        },
        parent, name, opened);
}

// `disposition` is 0 when no key was asked for: for the root.
FBR_STATUS FsOfflineRegistryImpl::CreateKey(ORHandleProxy* parent, const WChar* name,
                                            uint32_t options, ORHandleProxy** opened,
                                            uint32_t* disposition) {
    *disposition = 0;
    return OpenOrCreateKey(
        [this, options, disposition](ORHandleProxy& base, const WString& path, ORHKEY& raw) {
            if (isUnsettled_) return OpenWhatExists(base, path, disposition, raw);
            const uint32_t error = CreateKeyPath(base, path, options, disposition, raw);
            OutcomeOfChange(error);
            return error;
        },
        parent, name, opened);
}

// What is left of a creation in a hive that is not changed.
uint32_t FsOfflineRegistryImpl::OpenWhatExists(ORHandleProxy& parent, const WString& name,
                                               uint32_t* disposition, ORHKEY& opened) {
    const uint32_t error = dll_->OROpenKey(parent.Handle(), name.c_str(), &opened);
    *disposition = kOpenedExistingKey;
    if (error != kErrorFileNotFound) return error;
    RefuseChange();
    return kErrorFileCorrupt;
}

// The library makes only the last key of a path: where a parent is missing, all are made in turn.
uint32_t FsOfflineRegistryImpl::CreateKeyPath(ORHandleProxy& parent, const WString& name,
                                              uint32_t options, uint32_t* disposition,
                                              ORHKEY& opened) {
    const auto create = [&](const WString& path) {
        *disposition = 0;
        return dll_->ORCreateKey(parent.Handle(), path.c_str(), nullptr, options, nullptr, &opened,
                                 disposition);
    };
    uint32_t error = create(name);
    if (error != kErrorFileNotFound) return error;
    WString path;
    for (size_t start = 0, end = 0; start < name.size(); start = end + 1) {
        end = std::min(name.find('\\', start), name.size());
        if (end == start) continue;
        if (opened != nullptr) dll_->ORCloseKey(std::exchange(opened, nullptr));
        path = CombinePath(path, platform::WStringView(name).substr(start, end - start));
        error = create(path);
        if (error != 0) break;
    }
    return error;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_CreateDirEx(int64_t parent, const WChar* name,
                                                  FBR_CREATEOPTIONS options, int64_t* key) {
    if (name == nullptr || key == nullptr) return FSSTATUS_INVALID_PARAMETER;
    ORHandleProxy* opened = nullptr;
    uint32_t disposition = 0;
    const FBR_STATUS status =
        CreateKey(AsProxy(parent), name, static_cast<uint32_t>(options), &opened, &disposition);
    if (status != FSSTATUS_SUCCESS) return status;
    *key = AsHandle(opened);
    if (disposition == kOpenedExistingKey) return FSSTATUS_ALREADY_EXISTS;
    if (disposition != 0) dirty_ = true;
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_OpenDirEx(int64_t parent, const WChar* name, int64_t* key) {
    if (name == nullptr || key == nullptr) return FSSTATUS_INVALID_PARAMETER;
    ORHandleProxy* opened = nullptr;
    const FBR_STATUS status = OpenKey(AsProxy(parent), name, &opened);
    if (status == FSSTATUS_SUCCESS) *key = AsHandle(opened);
    return status;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_DeleteDirEx(int64_t key) {
    if (key == 0) return FSSTATUS_INVALID_PARAMETER;
    if (const FBR_STATUS refused = RefuseChange(); refused != FSSTATUS_SUCCESS) return refused;
    return MarkDirtyOn(dll_->ORDeleteKey(AsProxy(key)->Handle(), nullptr));
}

FBR_STATUS FsOfflineRegistryImpl::FBR_DeleteDirNamedEx(const WChar* name) {
    if (name == nullptr) return FSSTATUS_INVALID_PARAMETER;
    if (const FBR_STATUS refused = RefuseChange(); refused != FSSTATUS_SUCCESS) return refused;
    KeyTreeDeleter record(this, name);
    const FBR_STATUS status = DeleteOpenKeyTree(record);
    if (status == FSSTATUS_SUCCESS) dirty_ = true;
    return status;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_CloseDirEx(int64_t key) {
    return Close(AsProxy(key));
}

FBR_STATUS FsOfflineRegistryImpl::Close(ORHandleProxy* proxy) {
    if (proxy == rootProxy_.get()) return FSSTATUS_SUCCESS;
    const std::lock_guard guard(lock_);
    openKeys_.erase(proxy);
    duplicates_.erase(proxy);
    delete proxy;
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_DuplicateDirHandleEx(int64_t key, int64_t* newKey) {
    if (key == 0 || newKey == nullptr) return FSSTATUS_INVALID_PARAMETER;
    const std::lock_guard guard(lock_);
    auto duplicate = std::make_unique<ORHandleProxy>(*AsProxy(key));
    duplicates_.insert(duplicate.get());
    *newKey = AsHandle(duplicate.release());
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_GetDirTimesEx(int64_t key, FBR_SYSTEMTIME* time) {
    if (key == 0 || time == nullptr) return FSSTATUS_INVALID_PARAMETER;
    ORFILETIME written = {};
    const uint32_t error =
        dll_->ORQueryInfoKey(AsProxy(key)->Handle(), nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr, nullptr, nullptr, &written);
    if (error != 0) return ToStatus(error);
    // A moment that the calendar does not hold leaves `time` alone; that is no failure here.
    FileTimeToCalendar(uint64_t{written.high} << 32 | written.low, time);
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_GetKeySecurityString(int64_t key, WChar* buffer,
                                                           uint32_t* bufferChars) {
    if (key == 0 || bufferChars == nullptr) return FSSTATUS_INVALID_PARAMETER;
    const ORHKEY handle = AsProxy(key)->Handle();
    uint32_t bytes = 0;
    std::vector<uint8_t> descriptor;
    uint32_t error = dll_->ORGetKeySecurity(handle, kAllInformation, nullptr, &bytes);
    if (error == kErrorMoreData) {
        descriptor.resize(bytes);
        error = dll_->ORGetKeySecurity(handle, kAllInformation, descriptor.data(), &bytes);
    }
    WString text;
    if (error == 0) error = DescriptorToText(descriptor, kAllInformation, &text);
    if (error != 0) return ToStatus(error);
    const bool fits = buffer != nullptr && text.size() < *bufferChars;
    *bufferChars = static_cast<uint32_t>(text.size() + 1);
    if (!fits) return FSSTATUS_BUFFER_OVERFLOW;
    std::copy_n(text.c_str(), text.size() + 1, buffer);
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_SetKeySecurityString(int64_t key, const WChar* sddl) {
    if (key == 0 || sddl == nullptr) return FSSTATUS_INVALID_PARAMETER;
    if (const FBR_STATUS refused = RefuseChange(); refused != FSSTATUS_SUCCESS) return refused;
    std::vector<uint8_t> descriptor;
    uint32_t error = TextToDescriptor(sddl, &descriptor);
    if (error == 0) {
        error = dll_->ORSetKeySecurity(AsProxy(key)->Handle(), kAllInformation, descriptor.data());
    }
    return OutcomeOfChange(error);
}
