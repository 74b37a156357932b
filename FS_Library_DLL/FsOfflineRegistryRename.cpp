// Renaming in the offline store: the library has no such operation, so a key is copied and deleted,
// and every open key that stood in it is opened again at its new place.
#include <algorithm>
#include <utility>

#include "FS_Library_DLL/FsOfflineRegistryImpl.h"
#include "FS_Library_DLL/KeyTreeDeleter.h"
#include "FS_Library_DLL/OfflineProxies.h"

using namespace offline;

namespace {

constexpr size_t kFirstDataBytes = 4096;

WString Folded(WString text) {
    std::transform(text.begin(), text.end(), text.begin(), platform::Fold);
    return text;
}

// The path of the parent with its backslash behind.
WString ParentOf(const WString& path) {
    return path.substr(0, path.rfind('\\') + 1);
}

bool IsSameOrBelow(const WString& path, const WString& ancestor) {
    const WString folded = Folded(path);
    const WString top = Folded(ancestor);
    return folded.starts_with(top) && (folded.size() == top.size() || folded[top.size()] == '\\');
}

// Less one backslash at either end.
WString Stripped(const WString& path) {
    const size_t first = path.starts_with('\\') ? 1 : 0;
    const size_t last = path.size() > first && path.ends_with('\\') ? 1 : 0;
    return path.substr(first, path.size() - first - last);
}

}  // namespace

FBR_STATUS FsOfflineRegistryImpl::FBR_RenameDirEx(int64_t key, const WChar* newName) {
    ORHandleProxy* const renamed = AsProxy(key);
    if (newName == nullptr || renamed == nullptr) return FSSTATUS_INVALID_PARAMETER;
    const WString oldPath = renamed->fullPath;
    const WString newPath = ParentOf(oldPath) + newName;
    // The root has no name to change, and a key cannot be moved into itself.
    if (oldPath == WTEXT("\\") ||
        (newPath.size() > oldPath.size() && IsSameOrBelow(newPath, oldPath))) {
        return FSSTATUS_INVALID_NAME;
    }

    ORHandleProxy* target = nullptr;
    uint32_t disposition = 0;
    FBR_STATUS status = CreateKey(nullptr, newPath.c_str(), 0, &target, &disposition);
    if (status != FSSTATUS_SUCCESS) return status;
    if (disposition == kOpenedExistingKey || target == rootProxy_.get()) {
        Close(target);
        return FSSTATUS_ALREADY_EXISTS;
    }
    dirty_ = true;
    status = CopyKeyTree(renamed, target);
    if (status != FSSTATUS_SUCCESS) {
        DeleteTree(target);
        Close(target);
        return status;
    }
    // A part of the old tree that cannot be deleted does not keep open keys from moving on.
    status = DeleteTree(renamed);

    const std::lock_guard guard(lock_);
    for (ORHandleProxy* proxy : openKeys_) {
        const uint32_t error = UpdatePath(*proxy, rootProxy_->Handle(), oldPath, newPath);
        if (error == 0) continue;
        status = ToStatus(error);
        break;
    }
    if (status == FSSTATUS_SUCCESS) dirty_ = true;
    return status;
}

FBR_STATUS FsOfflineRegistryImpl::DeleteTree(ORHandleProxy* key) {
    KeyTreeDeleter record(this, key->fullPath, AsHandle(key));
    return DeleteOpenKeyTree(record);
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
// word; in the last case the target's stays open. That is meant.
FBR_STATUS FsOfflineRegistryImpl::CopySubkey(ORHandleProxy* source, ORHandleProxy* target,
                                             const WString& name) {
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

// Opens a proxy again whose key stood at or below `oldPath`; leaves every other one alone.
uint32_t FsOfflineRegistryImpl::UpdatePath(ORHandleProxy& proxy, ORHKEY root,
                                           const WString& oldPath, const WString& newPath) {
    const WString folded = Folded(proxy.fullPath);
    const WString old = Folded(oldPath);
    if (folded == old) {
        proxy.SetPath(newPath);
    } else {
        const size_t found = folded.find(old);
        if (found == WString::npos) return 0;
        // A match that is not at the front keeps the text from there on; that is meant.
        const size_t rest = found == 0 ? old.size() : found;
        if (proxy.fullPath[rest] != '\\') return 0;
        proxy.SetPath(newPath + proxy.fullPath.substr(rest));
    }
    proxy.wrapper->Close();
    return dll_->OROpenKey(root, Stripped(proxy.fullPath).c_str(), &proxy.wrapper->handle);
}
