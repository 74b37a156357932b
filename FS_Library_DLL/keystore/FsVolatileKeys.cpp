// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsVolatileKeys.h"

#include "FS_Library_DLL/keystore/FsTree.h"

namespace {

bool SamePath(const FsVolatileKey* key, WStringView path) {
    return key->length == path.size() && platform::CompareFolded(key->Path(), path) == 0;
}

FsVolatileKey* Unlink(FsVolatileKey* before, FsStoreContext* context) ZRFS_REQUIRES(context->lock) {
    FsVolatileKey*& link = before == nullptr ? context->volatileKeys : before->next;
    FsVolatileKey* key = link;
    link = key->next;
    if (context->lastVolatileKey == key) context->lastVolatileKey = before;
    return key;
}

}  // namespace

void FsAddVolatileKey(WStringView path, FsStoreContext* context) {
    auto* key = static_cast<FsVolatileKey*>(
        platform::HeapAllocate(sizeof(FsVolatileKey) + (path.size() + 1) * sizeof(WChar)));
    if (key == nullptr) return;
    *key = {nullptr, path.size(), reinterpret_cast<WChar*>(key + 1)};
    path.copy(key->path, path.size());
    key->path[path.size()] = 0;
    FsVolatileKey* last = context->lastVolatileKey;
    (last != nullptr ? last->next : context->volatileKeys) = key;
    context->lastVolatileKey = key;
}

// Only a key at the head of the list is found. Behind it a match takes the key behind itself out,
// and the last key is never looked at. Which keys are volatile decides which are deleted at the
// close, and stores in use hold keys that this has left alone: a search that finds more would
// delete other keys than before.
void FsDropVolatileKey(WStringView path, FsStoreContext* context) {
    FsVolatileKey* head = context->volatileKeys;
    if (head == nullptr) return;
    if (SamePath(head, path)) {
        platform::HeapRelease(Unlink(nullptr, context));
        return;
    }
    for (FsVolatileKey* key = head; key->next != nullptr; key = key->next) {
        if (!SamePath(key, path)) continue;
        platform::HeapRelease(Unlink(key, context));
        return;
    }
}

void FsDeleteVolatileKeys(FsStoreContext* context) {
    while (context->volatileKeys != nullptr) {
        FsVolatileKey* key = context->volatileKeys;
        // The stored path is escaped a second time in there, so that a key whose name holds an
        // escape stays in the file.
        FS_DeleteDirNamedEx(key->path, context);
        platform::HeapRelease(Unlink(nullptr, context));
    }
}
