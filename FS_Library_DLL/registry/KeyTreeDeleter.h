// SPDX-License-Identifier: MIT
// Deletion of a key with all below it through the operations of any store.
#pragma once

#include "FS_Library_DLL/IFSInterface.h"

// A key on its way to deletion.
struct KeyTreeDeleter {
    // Opens `path`, as FBR_OpenDirEx with a null parent understands it; `status` is the outcome.
    KeyTreeDeleter(IFSInterface* owner, WString keyPath);
    // Stands on a key that the caller has opened and closes itself.
    KeyTreeDeleter(IFSInterface* owner, WString keyPath, int64_t openKey);
    // Closes `handle` when it is owned and open.
    ~KeyTreeDeleter();
    KeyTreeDeleter(const KeyTreeDeleter&) = delete;
    KeyTreeDeleter& operator=(const KeyTreeDeleter&) = delete;

    bool ownsHandle = true;
    WString path;
    IFSInterface* store;
    int64_t handle = 0;
    FBR_STATUS status = FSSTATUS_FAILED;
};

// Deletes the record's key and everything below it, depth first. Each subkey is opened by its path
// from the store's root. The first failure ends the deletion and is the result; what was deleted by
// then stays deleted. A record that could not be opened gives its own status, and a subkey with an
// empty name, which cannot be told from its parent, FSSTATUS_TREE_DELETE_FAILED. The record's
// handle stays open. Depth is limited by memory only.
FBR_STATUS DeleteOpenKeyTree(KeyTreeDeleter& record);
