// SPDX-License-Identifier: MIT
#include "storage/namespace/ParentOperation.h"

#include "storage/namespace/Directory.h"
#include "storage/namespace/Objects.h"

namespace storage {

Status EnterObject(StorageTransaction* transaction, FileObject* object, HandleTransaction* own) {
    StorageTransaction* held = object->transaction;
    if (held == nullptr || held == transaction) return JoinTransaction(transaction, object);
    if (held->objects.Count() != 1) return kSharing;
    StorageContext* context = object->context;
    // Its successor is made first, so that the handles have one whatever happens.
    Status status = BeginTransaction(context, &own->next, TransactionMode::HeldByFile);
    if (status != kOk) return status;
    own->object = object;
    if (!own->next->objects.Reserve(1)) return kNoMemory;
    status = CommitTransaction(context, held);
    return status == kOk ? JoinTransaction(transaction, object) : status;
}

void LeaveObject(HandleTransaction* own) {
    if (own->next == nullptr) return;
    if (own->object->transaction != nullptr || own->object->handles.Empty() ||
        JoinTransaction(own->next, own->object) != kOk)
        RollbackTransaction(own->object->context, own->next);
    own->next = nullptr;
}

Status ParentOperation::Begin(const WChar* path, bool checksName) {
    if (!context->active) return kNotOpen;
    Status status = BeginTransaction(context, &transaction, TransactionMode::Write);
    if (status == kOk)
        status = ResolvePath(context, path, true, false, false, &parent, transaction);
    if (status == kOk && checksName && !CheckName(parent.lastName)) status = kBadName;
    if (status == kOk) status = EnterObject(transaction, parent.object, &own);
    return status;
}

Status ParentOperation::EndTransaction(Status status) {
    if (transaction == nullptr) return status;
    if (status == kOk)
        status = CommitTransaction(context, transaction);
    else
        RollbackTransaction(context, transaction);
    transaction = nullptr;
    LeaveObject(&own);
    return status;
}

Status ParentOperation::End(Status status) {
    status = EndTransaction(status);
    ReleaseObjectChain(parent.object);
    parent.object = nullptr;
    return status;
}

}  // namespace storage
