// SPDX-License-Identifier: MIT
#include "storage/core/Dates.h"
#include "storage/core/PageCache.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Records.h"

namespace storage {

Status TouchTimes(FileObject* object, StorageTransaction* transaction) {
    RecordPlace place;
    Status status = FindRecord(object, kFileInfoRecord, &place, true, transaction);
    if (status != kOk) return status;
    const double now = CurrentDate();
    // Times tell milliseconds, and many changes come in one.
    const bool same = Load<double>(place.Bytes(), record::kModified) == now &&
                      Load<double>(place.Bytes(), record::kAccessed) == now;
    if (!same) status = MarkPageTouched(object->context, place.page);
    if (!same && status == kOk) {
        Store(place.Bytes(), record::kModified, now);
        Store(place.Bytes(), record::kAccessed, now);
    }
    ReleasePage(object->context, place.page);
    return status;
}

}  // namespace storage
