// Stands in until check and repair is in the tree; that removes this file.
#include "storage/StorageApi.h"

namespace storage {

Status StorageCheckAndRepair(const WChar*, const void*, uint32_t, const void*, const void*, void*,
                             CheckCallback) {
    return kInternal;
}

}  // namespace storage
