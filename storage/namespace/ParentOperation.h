// SPDX-License-Identifier: MIT
// What the operations that change the namespace share: one transaction, the directory that a path
// ends in, and the transactions of open handles that have to make way for the time.
#pragma once

#include "storage/namespace/FileObject.h"
#include "storage/namespace/Path.h"

namespace storage {

// The transaction that an object's handles will go on in.
struct HandleTransaction {
    FileObject* object = nullptr;
    StorageTransaction* next = nullptr;
};

// Makes the object part of the operation's transaction. One that its handles have is committed
// first, unless it has more objects than this one: kSharing.
Status EnterObject(StorageTransaction* transaction, FileObject* object, HandleTransaction* own);
// After the operation's transaction has ended: its handles get a transaction again. Cannot fail.
void LeaveObject(HandleTransaction* own);

struct ParentOperation {
    StorageContext* context;
    StorageTransaction* transaction = nullptr;
    ResolvedPath parent;
    HandleTransaction own;

    explicit ParentOperation(StorageContext* container) : context(container) {}

    // Begins the transaction, finds the directory of the path's last component and enters it.
    // With `checksName` that component must be a name that may be used. End follows, whatever the
    // status.
    Status Begin(const WChar* path, bool checksName);
    // Commits, or on an error rolls back; the first error is the result.
    Status EndTransaction(Status status);
    // EndTransaction, unless that was done, and gives the directory back.
    Status End(Status status);
};

}  // namespace storage
