// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/FsClusterImpl.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <limits>

#include "FS_Library_DLL/FsSwitches.h"
#include "FS_Library_DLL/ValueName.h"
#include "FS_Library_DLL/cluster/ClusterDelete.h"
#include "FS_Library_DLL/cluster/ClusterKeys.h"
#include "FS_Library_DLL/cluster/ClusterSweep.h"
#include "FS_Library_DLL/cluster/ClusterValues.h"
#include "FS_Library_DLL/cluster/ClusterWatch.h"
#include "FS_Library_DLL/cluster/CurlLibrary.h"
#include "Shared/logging/Logger.h"
#include "platform/Heap.h"
#include "platform/LockWaitLimit.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/FsClusterImpl"

using namespace cluster;
using platform::MutexGuard;
using Varnhold::Hob::Detail::kError;

namespace {

constexpr Milliseconds kPatienceAtOpening{4500};
constexpr uint32_t kCompactPatience = 5000;  // milliseconds
constexpr Milliseconds kPatienceAtClosing{3000};

// No exception leaves the store.
template <class Operation>
FBR_STATUS Quietly(Operation operation) {
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        return FSSTATUS_OUT_OF_MEMORY;
    } catch (const std::exception&) {
        return FSSTATUS_FAILED;
    }
}

FBR_STATUS CopyText(WStringView text, WChar** copy) {
    auto* block = static_cast<WChar*>(platform::HeapAllocate((text.size() + 1) * sizeof(WChar)));
    if (block == nullptr) return FSSTATUS_OUT_OF_MEMORY;
    text.copy(block, text.size());
    block[text.size()] = 0;
    *copy = block;
    return FSSTATUS_SUCCESS;
}

}  // namespace

template <class Operation>
FBR_STATUS FsClusterImpl::Locked(Operation operation) {
    if (!store_->IsOurs()) return FSSTATUS_FAILED;
    return Quietly([&] {
        const MutexGuard guard(store_->lock);
        return operation();
    });
}

// The operation on an open key; `notOpen` is the answer where it is not.
template <class Operation>
FBR_STATUS FsClusterImpl::WithKey(int64_t key, FBR_STATUS notOpen, Operation operation) {
    return Locked([&]() ZRFS_REQUIRES(store_->lock) {
        const OpenedKey* opened = store_->keys.Find(key);
        return opened == nullptr ? notOpen : operation(*opened);
    });
}

// The same where 0 stands for the root.
template <class Operation>
FBR_STATUS FsClusterImpl::WithBase(int64_t parent, Operation operation) {
    if (parent != 0) return WithKey(parent, FSSTATUS_FAILED, operation);
    return Locked([&]() ZRFS_REQUIRES(store_->lock) { return operation(OpenedKey{kRootId, {}}); });
}

FsClusterImpl::~FsClusterImpl() {
    GiveUp();
}

FBR_STATUS FsClusterImpl::Open(const WChar* path) {
    ClusterPath parsed;
    std::string wrong;
    if (!ParseClusterPath(path, &parsed, &wrong)) {
        if (!wrong.empty()) ZRFS_LOG(kError, "FsClusterImpl::FBR_InitialiseEx", "{}", wrong);
        return FSSTATUS_INVALID_NAME;
    }
    if (LoadCurl() == nullptr) {
        ZRFS_LOG(kError, "FsClusterImpl::FBR_InitialiseEx", "There is no libcurl.so.4");
        return FSSTATUS_NOT_IMPLEMENTED;
    }
    auto settings = std::make_shared<EtcdSettings>();
    SettingsFault fault;
    if (!ReadEtcdSettings(std::move(parsed.endpoints), settings.get(), &fault)) {
        ZRFS_LOG(kError, "FsClusterImpl::FBR_InitialiseEx", "{}", fault.text);
        return fault.isUnreadable ? FSSTATUS_ACCESS_DENIED : FSSTATUS_INVALID_PARAMETER;
    }
    auto store = std::make_unique<ClusterStore>(std::move(settings), std::move(parsed.prefix));
    const MutexGuard guard(store->lock);
    const Milliseconds patience = std::chrono::seconds(store->settings->patience);
    store->Api().SetPatience(std::min(patience, kPatienceAtOpening));
    const FBR_STATUS status = OpenRoot(*store);
    store->Api().SetPatience(patience);
    if (status == FSSTATUS_SUCCESS) store_ = std::move(store);
    return status;
}

FBR_STATUS FsClusterImpl::FBR_InitialiseEx(const WChar* path) {
    if (path == nullptr || store_ != nullptr) return FSSTATUS_INVALID_PARAMETER;
    return Quietly([&] { return Open(path); });
}

// What is not given back now, the cluster takes when the lease is over.
FBR_STATUS FsClusterImpl::GiveUp() {
    if (store_ == nullptr) return FSSTATUS_SUCCESS;
    if (!store_->IsOurs())
        return Quietly([&] { return ClusterStore::Leave(std::move(store_)), FSSTATUS_SUCCESS; });
    const FBR_STATUS status = SendGathered();
    Quietly([&] {
        store_->storeLock.Drop();
        const MutexGuard guard(store_->lock);
        store_->leases.ForgetAll();
        store_->Api().SetPatience(kPatienceAtClosing);
        if (store_->volatileLease != 0) store_->Api().Revoke(store_->volatileLease);
        return FSSTATUS_SUCCESS;
    });
    store_.reset();
    return status;
}

FBR_STATUS FsClusterImpl::FBR_DeInitialiseEx() {
    return GiveUp();
}

FBR_STATUS FsClusterImpl::FBR_CheckFile() {
    if (!g_switches.fileChecking) return FSSTATUS_FAILED;
    return Locked([&]() ZRFS_REQUIRES(store_->lock) { return CheckStore(*store_); });
}

FBR_STATUS FsClusterImpl::FBR_IsCorrupted(uint32_t* corrupted) {
    if (corrupted == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return Locked([&]() ZRFS_REQUIRES(store_->lock) {
        *corrupted = store_->isDamaged ? 1 : 0;
        return FSSTATUS_SUCCESS;
    });
}

FBR_STATUS FsClusterImpl::FBR_Compact(uint32_t* done) {
    if (done == nullptr) return FSSTATUS_INVALID_PARAMETER;
    if (!store_->IsOurs()) return FSSTATUS_FAILED;
    const uint32_t type = store_->storeLock.Type();
    const bool takes = type != FBR_LOCK_WRITE && type != FBR_LOCK_WRITE_OWNER;
    if (takes) {
        const platform::LockWaitLimit limit(kCompactPatience);
        const FBR_STATUS taken = FBR_GetLockEx(FBR_LOCK_WRITE);
        if (taken != FSSTATUS_SUCCESS) return taken;
    }
    const FBR_STATUS status =
        Locked([&]() ZRFS_REQUIRES(store_->lock) { return SweepStore(*store_); });
    if (takes) FBR_ReleaseLockEx(FBR_LOCK_WRITE);
    if (status == FSSTATUS_SUCCESS) *done |= 255;
    return status;
}

// Under a lock for changes, the root is there, and nothing that a deletion left.
FBR_STATUS FsClusterImpl::AfterLock(bool isLeft) {
    return Locked([&]() ZRFS_REQUIRES(store_->lock) {
        if (isLeft) DeleteGone(*store_);  // if not now, then later
        return store_->isMade ? FSSTATUS_SUCCESS : MakeRoot(*store_);
    });
}

FBR_STATUS FsClusterImpl::FBR_GetLockEx(uint32_t lockType) {
    if (!store_->IsOurs()) return FSSTATUS_FAILED;
    bool isLeft = false;
    FBR_STATUS status = Quietly([&] { return store_->storeLock.Take(lockType, &isLeft); });
    if (status != FSSTATUS_SUCCESS || lockType == FBR_LOCK_READ) return status;
    status = AfterLock(isLeft);
    if (status != FSSTATUS_SUCCESS) Quietly([&] { return store_->storeLock.Release(); });
    return status;
}

FBR_STATUS FsClusterImpl::FBR_ReleaseLockEx(uint32_t /*lockType*/) {
    if (!store_->IsOurs()) return FSSTATUS_FAILED;
    const FBR_STATUS sent = SendGathered();
    const FBR_STATUS status = Quietly([&] { return store_->storeLock.Release(); });
    return sent == FSSTATUS_SUCCESS ? status : sent;
}

FBR_STATUS FsClusterImpl::FBR_GetLockTypeEx(uint32_t* lockType) {
    if (lockType == nullptr) return FSSTATUS_INVALID_PARAMETER;
    if (!store_->IsOurs()) return FSSTATUS_FAILED;
    *lockType = store_->storeLock.Type();
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsClusterImpl::FBR_DeleteValue(int64_t key, const WChar* name) {
    return WithKey(key, FSSTATUS_FAILED, [&](const OpenedKey& opened) ZRFS_REQUIRES(store_->lock) {
        return DeleteValue(*store_, opened, OrDefault(name));
    });
}

FBR_STATUS FsClusterImpl::FBR_SetValue(int64_t key, const WChar* name, uint32_t type,
                                       const void* data, uint64_t size) {
    size = static_cast<uint32_t>(size);
    if (data == nullptr && size != 0) return FSSTATUS_INVALID_PARAMETER;
    return WithKey(key, FSSTATUS_FAILED, [&](const OpenedKey& opened) ZRFS_REQUIRES(store_->lock) {
        ValueRecord value{OrDefault(name), type};
        value.data.assign(static_cast<const char*>(data), size);
        return SetValue(*store_, opened, std::move(value));
    });
}

// A buffer that is too small gets the first bytes.
FBR_STATUS FsClusterImpl::FBR_QueryValue(int64_t key, const WChar* name, void* buffer,
                                         uint64_t bufferSize, uint64_t* size, uint32_t* type) {
    return WithKey(key, FSSTATUS_FAILED, [&](const OpenedKey& opened) ZRFS_REQUIRES(store_->lock) {
        ValueRecord value;
        const FBR_STATUS status =
            ReadValueOf(*store_, opened, OrDefault(name), buffer != nullptr, &value);
        if (status != FSSTATUS_SUCCESS) return status;
        if (type != nullptr) *type = value.type;
        if (buffer == nullptr) {
            if (size != nullptr) *size = value.size;
            return size != nullptr && value.size != 0 ? FSSTATUS_BUFFER_OVERFLOW : FSSTATUS_SUCCESS;
        }
        if (size == nullptr) return FSSTATUS_INVALID_PARAMETER;
        *size = std::min<uint64_t>(bufferSize, value.data.size());
        std::memcpy(buffer, value.data.data(), *size);
        return FSSTATUS_SUCCESS;
    });
}

FBR_STATUS FsClusterImpl::FBR_CreateDirEx(int64_t parent, const WChar* name,
                                          FBR_CREATEOPTIONS options, int64_t* key) {
    if (name == nullptr || key == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return WithBase(parent, [&](const OpenedKey& base) ZRFS_REQUIRES(store_->lock) {
        const bool isVolatile = (static_cast<uint32_t>(options) & FSCREATEOPTIONS_VOLATILE) != 0;
        OpenedKey opened;
        const FBR_STATUS status = MakePath(*store_, base, PartsOf(name), isVolatile, &opened);
        if (status == FSSTATUS_SUCCESS || status == FSSTATUS_ALREADY_EXISTS)
            *key = store_->keys.Add(std::move(opened));
        return status;
    });
}

FBR_STATUS FsClusterImpl::FBR_OpenDirEx(int64_t parent, const WChar* name, int64_t* key) {
    if (name == nullptr || key == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return WithBase(parent, [&](const OpenedKey& base) ZRFS_REQUIRES(store_->lock) {
        OpenedKey opened;
        const FBR_STATUS status = OpenPath(*store_, base, PartsOf(name), &opened);
        if (status == FSSTATUS_SUCCESS) *key = store_->keys.Add(std::move(opened));
        return status;
    });
}

FBR_STATUS FsClusterImpl::FBR_DeleteDirEx(int64_t key) {
    if (key == 0) return FSSTATUS_INVALID_PARAMETER;
    if (!store_->IsOurs()) return FSSTATUS_FAILED;
    if (!store_->storeLock.FenceOfChange()) return FSSTATUS_LOCK_FAILED;
    return WithKey(key, FSSTATUS_SUCCESS, [&](const OpenedKey& opened) ZRFS_REQUIRES(store_->lock) {
        const FBR_STATUS status = DeleteKey(*store_, opened);
        if (status == FSSTATUS_SUCCESS) store_->keys.Forget(WString(opened.path));
        return status;
    });
}

FBR_STATUS FsClusterImpl::FBR_DeleteDirNamedEx(const WChar* name) {
    if (name == nullptr || name[0] == 0) return FSSTATUS_INVALID_PARAMETER;
    return Locked([&]() ZRFS_REQUIRES(store_->lock) {
        const std::vector<WString> parts = PartsOf(name);
        const FBR_STATUS status = DeleteTree(*store_, parts);
        if (status == FSSTATUS_SUCCESS && !parts.empty()) store_->keys.Forget(PathOf({}, parts));
        return status;
    });
}

FBR_STATUS FsClusterImpl::FBR_RenameDirEx(int64_t key, const WChar* newName) {
    if (key == 0 || newName == nullptr || newName[0] == 0) return FSSTATUS_INVALID_PARAMETER;
    return WithKey(key, FSSTATUS_FAILED, [&](const OpenedKey& opened) ZRFS_REQUIRES(store_->lock) {
        const WString name(newName);
        if (opened.id == kRootId || name.find('\\') != WString::npos) return FSSTATUS_INVALID_NAME;
        const FBR_STATUS status = RenameKey(*store_, opened, name);
        if (status != FSSTATUS_SUCCESS) return status;
        const WString path = opened.path;
        store_->keys.Rename(path, path.substr(0, path.rfind('\\') + 1) + name);
        return status;
    });
}

FBR_STATUS FsClusterImpl::FBR_CloseDirEx(int64_t key) {
    if (key == 0) return FSSTATUS_INVALID_PARAMETER;
    return Locked([&]() ZRFS_REQUIRES(store_->lock) {
        return store_->keys.Close(key) ? FSSTATUS_SUCCESS : FSSTATUS_FAILED;
    });
}

FBR_STATUS FsClusterImpl::EnumerateOne(int64_t key, uint32_t index, Kind kind, WChar** name) {
    if (key == 0) return FSSTATUS_INVALID_PARAMETER;
    return WithKey(key, FSSTATUS_FAILED, [&](const OpenedKey& opened) ZRFS_REQUIRES(store_->lock) {
        const Listing* listing = nullptr;
        const FBR_STATUS status = List(*store_, opened, kind, true, &listing);
        if (status != FSSTATUS_SUCCESS) return status;
        if (index >= listing->names.size()) return FSSTATUS_NO_MORE_ENTRIES;
        return name == nullptr ? FSSTATUS_SUCCESS : CopyText(listing->names[index], name);
    });
}

FBR_STATUS FsClusterImpl::EnumerateAll(int64_t key, Kind kind, std::vector<WString>& names) {
    return WithKey(key, FSSTATUS_FAILED, [&](const OpenedKey& opened) ZRFS_REQUIRES(store_->lock) {
        const Listing* listing = nullptr;
        const FBR_STATUS status = List(*store_, opened, kind, false, &listing);
        if (status != FSSTATUS_SUCCESS) return status;
        names.insert(names.end(), listing->names.begin(), listing->names.end());
        return FSSTATUS_NO_MORE_ENTRIES;
    });
}

FBR_STATUS FsClusterImpl::FBR_EnumIntFileEx(int64_t key, uint32_t index, WChar** name) {
    return EnumerateOne(key, index, Kind::Values, name);
}

FBR_STATUS FsClusterImpl::FBR_EnumIntDirEx(int64_t key, uint32_t index, WChar** name) {
    return EnumerateOne(key, index, Kind::Children, name);
}

FBR_STATUS FsClusterImpl::FBR_EnumerateAllValues(int64_t key, std::vector<WString>& names) {
    return EnumerateAll(key, Kind::Values, names);
}

FBR_STATUS FsClusterImpl::FBR_EnumerateAllKeys(int64_t key, std::vector<WString>& names) {
    return EnumerateAll(key, Kind::Children, names);
}

FBR_STATUS FsClusterImpl::CopyName(int64_t key, bool wantsPath, WChar** name) {
    if (key == 0 || name == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return WithKey(key, FSSTATUS_FAILED, [&](const OpenedKey& opened) ZRFS_REQUIRES(store_->lock) {
        WStringView path = opened.path;
        if (!wantsPath) path.remove_prefix(path.rfind('\\') + 1);  // npos wraps to 0
        return CopyText(path, name);
    });
}

FBR_STATUS FsClusterImpl::FBR_GetName_DirEx(int64_t key, WChar** name) {
    return CopyName(key, false, name);
}

FBR_STATUS FsClusterImpl::FBR_GetFullName_DirEx(int64_t key, WChar** name) {
    return CopyName(key, true, name);
}

FBR_STATUS FsClusterImpl::FBR_DuplicateDirHandleEx(int64_t key, int64_t* newKey) {
    if (key == 0 || newKey == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return WithKey(key, FSSTATUS_FAILED, [&](const OpenedKey& opened) ZRFS_REQUIRES(store_->lock) {
        *newKey = store_->keys.Add(OpenedKey(opened));
        return FSSTATUS_SUCCESS;
    });
}

FBR_STATUS FsClusterImpl::FBR_GetDirTimesEx(int64_t key, FBR_SYSTEMTIME* time) {
    if (key == 0 || time == nullptr) return FSSTATUS_INVALID_PARAMETER;
    return WithKey(key, FSSTATUS_FAILED, [&](const OpenedKey& opened) ZRFS_REQUIRES(store_->lock) {
        platform::UtcTime changed{};
        const FBR_STATUS status = KeyTime(*store_, opened, &changed);
        if (status != FSSTATUS_SUCCESS) return status;
        *time = {changed.year, changed.month,  time->wDayOfWeek, changed.day,
                 changed.hour, changed.minute, changed.second,   changed.millisecond};
        return FSSTATUS_SUCCESS;
    });
}

FBR_STATUS FsClusterImpl::FBR_GetKeySecurityString(int64_t, WChar*, uint32_t*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

FBR_STATUS FsClusterImpl::FBR_SetKeySecurityString(int64_t, const WChar*) {
    return FSSTATUS_NOT_IMPLEMENTED;
}

bool FsClusterImpl::IsMade() {
    return Locked([&]() ZRFS_REQUIRES(store_->lock) {
               return store_->isMade ? FSSTATUS_SUCCESS : FSSTATUS_NOT_FOUND;
           }) == FSSTATUS_SUCCESS;
}

void FsClusterImpl::Gather(bool gathers) {
    SendGathered();
    Locked([&]() ZRFS_REQUIRES(store_->lock) {
        store_->Gather(gathers);
        return FSSTATUS_SUCCESS;
    });
}

FBR_STATUS FsClusterImpl::SendGathered() {
    return Locked([&]() ZRFS_REQUIRES(store_->lock) { return store_->SendGathered(); });
}

void FsClusterImpl::Snapshot(bool begins) {
    Locked([&]() ZRFS_REQUIRES(store_->lock) {
        store_->Snapshot(begins);
        return FSSTATUS_SUCCESS;
    });
}

FBR_STATUS FsClusterImpl::CurrentState(uint64_t* state) {
    return Locked([&]() ZRFS_REQUIRES(store_->lock) {
        RangeReply root;
        int64_t revision = 0;
        const Outcome outcome =
            store_->Api().Range({{store_->names.Key(kRootId)}}, &root, &revision);
        *state = static_cast<uint64_t>(revision);
        return store_->StatusOf(outcome);
    });
}

FBR_STATUS FsClusterImpl::WaitForChange(uint64_t state, const std::function<bool()>& goesOn) {
    if (!store_->IsOurs()) return FSSTATUS_FAILED;
    return Quietly([&] {
        return cluster::WaitForChange(store_->settings, store_->names, static_cast<int64_t>(state),
                                      goesOn);
    });
}
