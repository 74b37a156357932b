// SPDX-License-Identifier: MIT
// The offline store and its file: opening and closing, and when the hive may not be changed.
#include <new>
#include <utility>

#include "FS_Library_DLL/offline/FsOfflineRegistryImpl.h"
#include "FS_Library_DLL/offline/OfflineProxies.h"
#include "FS_Library_DLL/offline/OfflineSecurity.h"
#include "Shared/logging/Logger.h"
#include "W32Utils/W32Exceptions.h"
#include "platform/RealPath.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/FsOfflineRegistryImpl"

using namespace offline;
using platform::ToUtf8;
using Varnhold::Hob::Detail::kError;
using Varnhold::Hob::Detail::kWarning;

namespace {

constexpr uint32_t kRegDword = 4;
constexpr uint32_t kHiveVersion = 2;
constexpr uint32_t kOsMajor = 6;  // the file format of version 6.1 of the system
constexpr uint32_t kOsMinor = 1;
constexpr int kMostReads = 5;

// Where proxies go that callers still hold when their store closes. They are not freed, for a
// caller may look at its handle once more; here they stay reachable. The library hears of them no
// more: their hive is closed.
void Abandon(const std::vector<ORHandleProxy*>& proxies) {
    static std::mutex lock;
    static auto* abandoned = new std::vector<ORHandleProxy*>;
    const std::lock_guard guard(lock);
    for (ORHandleProxy* proxy : proxies) proxy->wrapper->handle = nullptr;
    abandoned->insert(abandoned->end(), proxies.begin(), proxies.end());
}

}  // namespace

FsOfflineRegistryImpl::~FsOfflineRegistryImpl() {
    CloseAll();
}

FBR_STATUS FsOfflineRegistryImpl::FBR_InitialiseEx(const WChar* path) {
    if (path == nullptr) return FSSTATUS_INVALID_PARAMETER;
    CloseAll();
    dirty_ = false;
    // The folder that a path begins in, or a link, may be another one by the time of the save.
    if (platform::RealPath(path, &hivePath_) != platform::kErrorSuccess) hivePath_ = path;
    try {
        dll_ = std::make_unique<OfflineRegistryDll>();
    } catch (const w32utils::exception_t& failure) {
        return ToStatus(failure.Code());
    }
    ORHKEY hive = nullptr;
    const FBR_STATUS status = ToStatus(OpenHive(&hive));
    isUnsettled_ = status == FSSTATUS_SUCCESS && !read_.IsSettled();
    if (status == FSSTATUS_NOT_FOUND) return MakeHive();
    if (status != FSSTATUS_SUCCESS) return status;
    rootProxy_ = std::make_unique<ORHandleProxy>(dll_.get(), hive);
    if (isUnsettled_) {
        ZRFS_LOG(
            kWarning, "FsOfflineRegistryImpl::FBR_InitialiseEx",
            "[{}] has sequence numbers that differ: it was not closed, or its last changes are "
            "in a log, which is not read. It cannot be changed",
            ToUtf8(hivePath_));
    }
    return FSSTATUS_SUCCESS;
}

// Reads the hive and takes the mark of what was read: the file must be the same before and after.
uint32_t FsOfflineRegistryImpl::OpenHive(ORHKEY* hive) {
    for (int attempt = 0; attempt < kMostReads; ++attempt) {
        const uint32_t seen = TakeMark(hivePath_, &read_);
        const uint32_t error = dll_->OROpenHive(hivePath_.c_str(), hive);
        if (error != 0) {
            read_ = {};
            const bool leadsNowhere = seen == platform::kErrorInvalidName;
            return error == kErrorFileNotFound && leadsNowhere ? platform::kErrorPathNotFound
                                                               : error;
        }
        // A library that lets nobody else read the hive lets nobody change it either.
        HiveMark after;
        if (seen == 0 && (TakeMark(hivePath_, &after) != 0 || after == read_)) return 0;
        dll_->ORCloseHive(std::exchange(*hive, nullptr));
    }
    return platform::kErrorSharingViolation;
}

FBR_STATUS FsOfflineRegistryImpl::MakeHive() {
    ORHKEY hive = nullptr;
    const uint32_t error = dll_->ORCreateHive(&hive);
    if (error != 0) return ToStatus(error);
    const FBR_STATUS status = CopyUserHiveSecurity(*dll_, hive);
    // A new hive that fails here is not closed; it has no file yet.
    if (status != FSSTATUS_SUCCESS) return status;
    rootProxy_ = std::make_unique<ORHandleProxy>(dll_.get(), hive);
    // The version is not needed to go on, so that a failure here is none of the open.
    if (dll_->ORSetValue(hive, WTEXT("FBRVersion"), kRegDword, &kHiveVersion,
                         sizeof kHiveVersion) == 0) {
        dirty_ = true;
    }
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_DeInitialiseEx() {
    uint32_t error = 0;
    if (rootProxy_ != nullptr && dirty_) {
        try {
            error = ReplaceHive(hivePath_, read_, [this](const WString& path) {
                return dll_->ORSaveHive(rootProxy_->Handle(), path.c_str(), kOsMajor, kOsMinor);
            });
        } catch (const std::bad_alloc&) {
            error = kErrorOutOfMemory;
        }
    }
    CloseAll();
    if (error == 0) dirty_ = false;
    return ToStatus(error);
}

void FsOfflineRegistryImpl::CloseAll() {
    // A duplicate of the root may outlive it; the hive does not.
    if (rootProxy_ != nullptr) rootProxy_->wrapper->Close();
    {
        const std::lock_guard guard(lock_);
        Abandon(AllProxies());
        openKeys_.clear();
        duplicates_.clear();
    }
    rootProxy_.reset();
    dll_.reset();
}

std::vector<ORHandleProxy*> FsOfflineRegistryImpl::AllProxies() const {
    std::vector<ORHandleProxy*> all(openKeys_.begin(), openKeys_.end());
    all.insert(all.end(), duplicates_.begin(), duplicates_.end());
    return all;
}

// Asked before every change.
FBR_STATUS FsOfflineRegistryImpl::RefuseChange() const {
    if (!isUnsettled_) return FSSTATUS_SUCCESS;
    ZRFS_LOG(kError, "FsOfflineRegistryImpl::RefuseChange",
             "[{}] is not changed: its sequence numbers differ", ToUtf8(hivePath_));
    return FSSTATUS_FILE_CORRUPT;
}

FBR_STATUS FsOfflineRegistryImpl::OutcomeOfChange(uint32_t error) const {
    if (error == kErrorFileCorrupt) {
        ZRFS_LOG(kError, "FsOfflineRegistryImpl::OutcomeOfChange",
                 "[{}] is not changed: a part of it cannot be read and would be lost",
                 ToUtf8(hivePath_));
    }
    return ToStatus(error);
}

FBR_STATUS FsOfflineRegistryImpl::MarkDirtyOn(uint32_t error) {
    if (error == 0) dirty_ = true;
    return OutcomeOfChange(error);
}
