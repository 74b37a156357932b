#include "storage/core/Dates.h"
#include "storage/core/PageCache.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Records.h"

namespace storage {

Status TouchTimes(FileObject* object, StorageTransaction* transaction) {
    RecordPlace place;
    Status status = FindRecord(object, kFileInfoRecord, &place, 0, true, transaction);
    if (status != kOk) return status;
    status = MarkPageTouched(object->context, place.page);
    if (status == kOk) {
        const double now = CurrentDate();
        Store(place.Bytes(), record::kModified, now);
        Store(place.Bytes(), record::kAccessed, now);
    }
    ReleasePage(object->context, place.page);
    return status;
}

}  // namespace storage
