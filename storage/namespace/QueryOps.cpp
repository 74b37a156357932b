// SPDX-License-Identifier: MIT
// Questions about one object, each in a read transaction.
#include "storage/core/PageCache.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Operations.h"
#include "storage/namespace/Path.h"
#include "storage/namespace/Records.h"

namespace storage {

namespace {

template <class Ask>
Status Query(StorageContext* context, const WChar* path, bool followLastLink, Ask ask) {
    if (!context->active) return kNotOpen;
    StorageTransaction* transaction = nullptr;
    Status status = BeginTransaction(context, &transaction, TransactionMode::Read);
    if (status != kOk) return status;
    ResolvedPath resolved;
    status = ResolvePath(context, path, false, false, followLastLink, &resolved, transaction);
    if (status == kOk) status = ask(resolved.object, transaction);
    ReleaseObjectChain(resolved.object);
    EndReadTransaction(context, transaction);
    return status;
}

}  // namespace

Status AttributesAt(StorageContext* context, const WChar* path, uint32_t* attributes) {
    return Query(context, path, false, [attributes](FileObject* object, StorageTransaction*) {
        *attributes = object->entry->attributes;
        return kOk;
    });
}

Status TimesAt(StorageContext* context, const WChar* path, double* created, double* modified,
               double* accessed) {
    double unused = 0;
    double& createdOut = created != nullptr ? *created : unused;
    double& modifiedOut = modified != nullptr ? *modified : unused;
    double& accessedOut = accessed != nullptr ? *accessed : unused;
    createdOut = modifiedOut = accessedOut = 0;
    return Query(context, path, false, [&](FileObject* object, StorageTransaction* transaction) {
        RecordPlace place;
        const Status status = FindRecord(object, kFileInfoRecord, &place, true, transaction);
        if (status != kOk) return status;
        createdOut = Load<double>(place.Bytes(), record::kCreated);
        modifiedOut = Load<double>(place.Bytes(), record::kModified);
        accessedOut = Load<double>(place.Bytes(), record::kAccessed);
        ReleasePage(object->context, place.page);
        return kOk;
    });
}

Status IsDirectoryEmptyAt(StorageContext* context, const WChar* path, uint8_t* empty) {
    *empty = 0;
    return Query(context, path, true, [empty](FileObject* object, StorageTransaction* transaction) {
        const Status status = LoadDirectory(object, transaction);
        if (status == kOk) *empty = object->children.Empty() ? 1 : 0;
        return status;
    });
}

}  // namespace storage
