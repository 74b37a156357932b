// SPDX-License-Identifier: MIT
// Names of keys and values in the offline store.
#include <algorithm>
#include <limits>

#include "FS_Library_DLL/offline/FsOfflineRegistryImpl.h"
#include "FS_Library_DLL/offline/OfflineProxies.h"
#include "Shared/logging/Logger.h"
#include "platform/Heap.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/FsOfflineRegistryImpl"

using namespace offline;
using Varnhold::Hob::Detail::kWarning;

namespace {

constexpr size_t kFirstNameUnits = 1024;

// Bytes for a name and its terminator. A size past 32 bits is only told.
uint64_t BytesForName(size_t units) {
    constexpr uint64_t kMost = std::numeric_limits<uint32_t>::max();
    const uint64_t bytes = uint64_t{units} * sizeof(WChar) + sizeof(WChar);
    if (units <= kMost && bytes > kMost) {
        constexpr const char* kFunction = "FsOfflineRegistryImpl::GetKeyName";
        ZRFS_LOG(kWarning, kFunction, "Buffer overflow caused by key name length - Size: [{}]l",
                 units);
        // Nothing is clamped; the words are what logs are searched for.
        ZRFS_LOG(kWarning, kFunction, "Clamping size to [{}]l",
                 std::numeric_limits<uint64_t>::max());
    }
    return bytes;
}

}  // namespace

// The second half of asking for one name, when its size (with the terminator) is known.
FBR_STATUS FsOfflineRegistryImpl::GetIndexedName(const NameFunction& function, uint32_t index,
                                                 uint32_t units, WChar** name) {
    // One byte more than the units take, for a function that writes past its last one.
    auto* block =
        static_cast<WChar*>(platform::HeapAllocateZeroed(size_t{units} * sizeof(WChar) + 1));
    if (block == nullptr) return ToStatus(kErrorOutOfMemory);
    const uint32_t error = function(index, block, &units);
    FBR_STATUS status = ToStatus(error);
    // Whoever reads the text ends at the zero, with the name of another key or value.
    if (error == 0 && platform::WStringView(block, units).find(WChar{0}) != WString::npos) {
        status = FSSTATUS_INVALID_NAME;
    }
    if (status == FSSTATUS_SUCCESS)
        *name = block;
    else
        platform::HeapRelease(block);
    return status;
}

FBR_STATUS FsOfflineRegistryImpl::FBR_EnumIntFileEx(int64_t key, uint32_t index, WChar** name) {
    if (key == 0 || name == nullptr) return FSSTATUS_INVALID_PARAMETER;
    const ORHKEY handle = AsProxy(key)->Handle();
    const NameFunction ask = [this, handle](uint32_t i, WChar* buffer, uint32_t* units) {
        return dll_->OREnumValue(handle, i, buffer, units, nullptr, nullptr, nullptr);
    };
    WChar first = 0;
    uint32_t units = 1;
    const uint32_t error = ask(index, &first, &units);
    if (error != 0 && error != kErrorMoreData) return ToStatus(error);
    // The unnamed value has no characters, but its terminator needs room.
    return GetIndexedName(ask, index, std::max(units, 1u), name);
}

FBR_STATUS FsOfflineRegistryImpl::FBR_EnumIntDirEx(int64_t key, uint32_t index, WChar** name) {
    if (key == 0 || name == nullptr) return FSSTATUS_INVALID_PARAMETER;
    const ORHKEY handle = AsProxy(key)->Handle();
    const NameFunction ask = [this, handle](uint32_t i, WChar* buffer, uint32_t* units) {
        return dll_->OREnumKey(handle, i, buffer, units, nullptr, nullptr, nullptr);
    };
    uint32_t units = 0;
    const uint32_t error = ask(index, nullptr, &units);
    if (error != kErrorMoreData) return ToStatus(error);
    return GetIndexedName(ask, index, units, name);
}

FBR_STATUS FsOfflineRegistryImpl::EnumerateNames(const NameFunction& function,
                                                 std::vector<WString>& names) {
    std::vector<WChar> buffer(kFirstNameUnits);
    for (uint32_t index = 0;; ++index) {
        auto units = static_cast<uint32_t>(buffer.size());
        uint32_t error = function(index, buffer.data(), &units);
        if (error == kErrorMoreData) {
            buffer.resize(std::max(units, 1u));
            units = static_cast<uint32_t>(buffer.size());
            error = function(index, buffer.data(), &units);
        }
        if (error != 0) return ToStatus(error);
        names.emplace_back(buffer.data(), units);
    }
}

FBR_STATUS FsOfflineRegistryImpl::FBR_EnumerateAllValues(int64_t key, std::vector<WString>& names) {
    if (key == 0) return FSSTATUS_INVALID_PARAMETER;
    const ORHKEY handle = AsProxy(key)->Handle();
    return EnumerateNames(
        [this, handle](uint32_t index, WChar* buffer, uint32_t* units) {
            return dll_->OREnumValue(handle, index, buffer, units, nullptr, nullptr, nullptr);
        },
        names);
}

FBR_STATUS FsOfflineRegistryImpl::FBR_EnumerateAllKeys(int64_t key, std::vector<WString>& names) {
    if (key == 0) return FSSTATUS_INVALID_PARAMETER;
    const ORHKEY handle = AsProxy(key)->Handle();
    return EnumerateNames(
        [this, handle](uint32_t index, WChar* buffer, uint32_t* units) {
            return dll_->OREnumKey(handle, index, buffer, units, nullptr, nullptr, nullptr);
        },
        names);
}

FBR_STATUS FsOfflineRegistryImpl::FBR_GetName_DirEx(int64_t key, WChar** name) {
    return GetKeyName(AsProxy(key), name, false);
}

FBR_STATUS FsOfflineRegistryImpl::FBR_GetFullName_DirEx(int64_t key, WChar** name) {
    return GetKeyName(AsProxy(key), name, true);
}

FBR_STATUS FsOfflineRegistryImpl::GetKeyName(ORHandleProxy* key, WChar** name, bool wantFullPath) {
    const std::lock_guard guard(lock_);
    if (key == nullptr || name == nullptr) return FSSTATUS_INVALID_PARAMETER;
    const WString& text = wantFullPath ? key->fullPath : key->name;
    auto* copy = static_cast<WChar*>(platform::HeapAllocateZeroed(BytesForName(text.size())));
    if (copy == nullptr) return FSSTATUS_OUT_OF_MEMORY;
    std::copy(text.begin(), text.end(), copy);
    *name = copy;
    return FSSTATUS_SUCCESS;
}
