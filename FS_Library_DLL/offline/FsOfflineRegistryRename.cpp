// SPDX-License-Identifier: MIT
// Renaming in the offline store: the library has no such operation, so a key is copied and deleted,
// and every open key that stood in it is opened again at its new place.
#include <algorithm>
#include <utility>

#include "FS_Library_DLL/offline/FsOfflineRegistryImpl.h"
#include "FS_Library_DLL/offline/OfflineProxies.h"
#include "FS_Library_DLL/registry/KeyTreeDeleter.h"
#include "offreg/Names.h"

using namespace offline;
using platform::WStringView;

namespace {

constexpr size_t kFirstDataBytes = 4096;

// Takes the first component off a path, with the backslashes before it. False at the end.
bool TakeComponent(WStringView* path, WStringView* component) {
    path->remove_prefix(std::min(path->find_first_not_of('\\'), path->size()));
    *component = path->substr(0, path->find('\\'));
    path->remove_prefix(component->size());
    return !component->empty();
}

// True when `path` is `ancestor` or lies below it, whole components compared by the hive's own
// rule; `rest` is then what stands behind, spelled as it is.
bool IsSameOrBelow(WStringView path, WStringView ancestor, WString* rest) {
    WStringView wanted;
    WStringView found;
    while (TakeComponent(&ancestor, &wanted)) {
        if (!TakeComponent(&path, &found) || offreg::CompareNames(found, wanted) != 0) return false;
    }
    *rest = path;
    return true;
}

// The path of the parent with its backslash behind.
WString ParentOf(const WString& path) {
    const size_t last = path.find_last_not_of('\\');
    return path.substr(0, path.rfind('\\', last) + 1);
}

// As the library wants it: one backslash between components, none around.
WString Plain(WStringView path) {
    WString plain;
    WStringView component;
    while (TakeComponent(&path, &component)) {
        if (!plain.empty()) plain += '\\';
        plain += component;
    }
    return plain;
}

bool HoldsZero(const WString& name) {
    return name.find(WChar{0}) != WString::npos;
}

}  // namespace

FBR_STATUS FsOfflineRegistryImpl::FBR_RenameDirEx(int64_t key, const WChar* newName) {
    ORHandleProxy* const renamed = AsProxy(key);
    if (newName == nullptr || renamed == nullptr) return FSSTATUS_INVALID_PARAMETER;
    if (const FBR_STATUS refused = RefuseChange(); refused != FSSTATUS_SUCCESS) return refused;
    const WString oldPath = renamed->fullPath;
    const WString wanted = ParentOf(oldPath) + newName;
    WString rest;
    // The root has no name to change, and a key cannot be moved into itself.
    if (Plain(oldPath).empty() || (IsSameOrBelow(wanted, oldPath, &rest) && !Plain(rest).empty())) {
        return FSSTATUS_INVALID_NAME;
    }
    if (const uint32_t error = Probe(*renamed); error != 0) return ToStatus(error);

    ORHandleProxy* target = nullptr;
    uint32_t disposition = 0;
    FBR_STATUS status = CreateKey(nullptr, wanted.c_str(), 0, &target, &disposition);
    if (status != FSSTATUS_SUCCESS) return status;
    if (disposition == kOpenedExistingKey || target == rootProxy_.get()) {
        Close(target);
        return FSSTATUS_ALREADY_EXISTS;
    }
    dirty_ = true;
    const WString newPath = target->fullPath;
    status = CopyKeyTree(renamed, target);
    MovedKeys moved;
    if (status == FSSTATUS_SUCCESS) status = ToStatus(OpenMoved(oldPath, newPath, &moved));
    if (status != FSSTATUS_SUCCESS) {
        DeleteTree(target);
        Close(target);
        return status;
    }
    // A part of the old tree that cannot be deleted does not keep open keys from moving on.
    status = DeleteTree(renamed);
    Move(moved, newPath);
    return status;
}

FBR_STATUS FsOfflineRegistryImpl::DeleteTree(ORHandleProxy* key) {
    KeyTreeDeleter record(this, Plain(key->fullPath), AsHandle(key));
    return DeleteOpenKeyTree(record);
}

// 0 for a key that is there; what the library says of a deleted one.
uint32_t FsOfflineRegistryImpl::Probe(const ORHandleProxy& proxy) const {
    return dll_->ORQueryInfoKey(proxy.Handle(), nullptr, nullptr, nullptr, nullptr, nullptr,
                                nullptr, nullptr, nullptr, nullptr, nullptr);
}

FBR_STATUS FsOfflineRegistryImpl::CopyKeyTree(ORHandleProxy* source, ORHandleProxy* target) {
    // An enumeration that ends in any other way than at its end copies nothing, and is no failure.
    std::vector<WString> names;
    if (FBR_EnumerateAllValues(AsHandle(source), names) == FSSTATUS_NO_MORE_ENTRIES) {
        const FBR_STATUS status = CopyValues(source, target, names);
        if (status != FSSTATUS_SUCCESS) return status;
    }
    names.clear();
    if (FBR_EnumerateAllKeys(AsHandle(source), names) != FSSTATUS_NO_MORE_ENTRIES) {
        return FSSTATUS_SUCCESS;
    }
    for (const WString& name : names) {
        const FBR_STATUS status = CopySubkey(source, target, name);
        if (status != FSSTATUS_SUCCESS) return status;
    }
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FsOfflineRegistryImpl::CopyValues(ORHandleProxy* source, ORHandleProxy* target,
                                             const std::vector<WString>& names) {
    std::vector<uint8_t> data(kFirstDataBytes);
    for (const WString& name : names) {
        if (HoldsZero(name)) return FSSTATUS_INVALID_NAME;
        uint64_t size = 0;
        uint32_t type = 0;
        const auto read = [&] {
            return FBR_QueryValue(AsHandle(source), name.c_str(), data.data(), data.size(), &size,
                                  &type);
        };
        FBR_STATUS status = read();
        if (status == FSSTATUS_BUFFER_OVERFLOW) {
            data.resize(size);
            status = read();
        }
        if (status == FSSTATUS_SUCCESS) {
            status = FBR_SetValue(AsHandle(target), name.c_str(), type, data.data(), size);
        }
        if (status != FSSTATUS_SUCCESS) return status;
    }
    return FSSTATUS_SUCCESS;
}

// A subkey that cannot be opened or made, or that the target has already, is left out without a
// word, so that the rename goes on with the others; in the last case the target's stays open.
FBR_STATUS FsOfflineRegistryImpl::CopySubkey(ORHandleProxy* source, ORHandleProxy* target,
                                             const WString& name) {
    if (HoldsZero(name)) return FSSTATUS_INVALID_NAME;
    ORHandleProxy* from = nullptr;
    if (OpenKey(source, name.c_str(), &from) != FSSTATUS_SUCCESS) return FSSTATUS_SUCCESS;
    ORHandleProxy* to = nullptr;
    uint32_t disposition = 0;
    const FBR_STATUS created = CreateKey(target, name.c_str(), 0, &to, &disposition);
    FBR_STATUS status = FSSTATUS_SUCCESS;
    if (created == FSSTATUS_SUCCESS && disposition != kOpenedExistingKey) {
        dirty_ = true;
        status = CopyKeyTree(from, to);
        Close(to);
    }
    Close(from);
    return status;
}

// Opens what the handles of keys in the renamed one will stand on. A handle whose key was deleted
// stays what it is, even where a key of that path was made since. On failure nothing is open.
uint32_t FsOfflineRegistryImpl::OpenMoved(const WString& oldPath, const WString& newPath,
                                          MovedKeys* moved) {
    const std::lock_guard guard(lock_);
    uint32_t error = 0;
    for (const ORHandleProxy* proxy : AllProxies()) {
        Moved place;
        if (!IsSameOrBelow(proxy->fullPath, oldPath, &place.rest) || Probe(*proxy) != 0) continue;
        const auto [known, isNew] = moved->emplace(proxy->wrapper.get(), std::move(place));
        if (!isNew) continue;
        const WString path = Plain(newPath + known->second.rest);
        error = dll_->OROpenKey(rootProxy_->Handle(), path.c_str(), &known->second.handle);
        if (error != 0) break;
    }
    if (error == 0) return 0;
    for (auto& [wrapper, place] : *moved) {
        if (place.handle != nullptr) dll_->ORCloseKey(place.handle);
    }
    return error;
}

void FsOfflineRegistryImpl::Move(const MovedKeys& moved, const WString& newPath) {
    const std::lock_guard guard(lock_);
    for (const auto& [wrapper, place] : moved) {
        wrapper->Close();
        wrapper->handle = place.handle;
    }
    for (ORHandleProxy* proxy : AllProxies()) {
        const auto place = moved.find(proxy->wrapper.get());
        if (place != moved.end()) proxy->SetPath(newPath + place->second.rest);
    }
}
