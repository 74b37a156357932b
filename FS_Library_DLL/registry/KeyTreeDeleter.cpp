// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/registry/KeyTreeDeleter.h"

#include <deque>
#include <utility>

#include "FS_Library_DLL/HeapString.h"
#include "FS_Library_DLL/registry/CombinePath.h"

namespace {

// Opens the first subkey of `current` and puts it on the stack. When there is none, or it cannot be
// opened, the result is false and the reason becomes the status of `current`.
bool EnterFirstSubkey(KeyTreeDeleter& current, std::deque<KeyTreeDeleter>& below) {
    HeapString name;
    current.status = current.store->FBR_EnumIntDirEx(current.handle, 0, &name.text);
    if (current.status != FSSTATUS_SUCCESS) {
        name.text = nullptr;  // not filled by a store that failed
        return false;
    }
    if (name.text == nullptr || *name.text == 0) {
        current.status = FSSTATUS_TREE_DELETE_FAILED;
        return false;
    }
    KeyTreeDeleter& child = below.emplace_back(current.store, CombinePath(current.path, name.text));
    if (child.status == FSSTATUS_SUCCESS) return true;
    current.status = child.status;
    below.pop_back();
    return false;
}

}  // namespace

KeyTreeDeleter::KeyTreeDeleter(IFSInterface* owner, WString keyPath)
    : path(std::move(keyPath)), store(owner) {
    status = store->FBR_OpenDirEx(0, path.c_str(), &handle);
}

KeyTreeDeleter::KeyTreeDeleter(IFSInterface* owner, WString keyPath, int64_t openKey)
    : ownsHandle(false),
      path(std::move(keyPath)),
      store(owner),
      handle(openKey),
      status(FSSTATUS_SUCCESS) {}

KeyTreeDeleter::~KeyTreeDeleter() {
    if (ownsHandle && handle != 0) store->FBR_CloseDirEx(handle);
}

// The way down to the key that is being emptied stands on a stack of its own: the depth is the
// store's, and a store may come from anywhere.
FBR_STATUS DeleteOpenKeyTree(KeyTreeDeleter& record) {
    if (record.status != FSSTATUS_SUCCESS) return record.status;
    std::deque<KeyTreeDeleter> below;
    for (;;) {
        KeyTreeDeleter& current = below.empty() ? record : below.back();
        // Always the first subkey: the one before it is gone by now.
        if (current.status == FSSTATUS_SUCCESS && EnterFirstSubkey(current, below)) continue;
        if (current.status == FSSTATUS_NO_MORE_ENTRIES) {
            current.status = current.store->FBR_DeleteDirEx(current.handle);
        }
        const FBR_STATUS status = current.status;
        if (below.empty()) return status;
        below.pop_back();
        (below.empty() ? record : below.back()).status = status;
    }
}
