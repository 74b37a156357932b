// SPDX-License-Identifier: MIT
#include "storage/namespace/Listing.h"

#include "storage/namespace/Directory.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Path.h"

namespace storage {

namespace {

Status FindIndex(FileObject* directory, uint32_t attributeMask, uint32_t index, ListPlace* place,
                 platform::WStringView* name) {
    const EntryList& list = directory->children;
    const bool same = place->version == directory->listVersion && place->index <= index;
    ListPlace at = same ? *place : ListPlace{directory->listVersion, 0, 0};
    for (; at.position < list.Count(); ++at.position) {
        const DirEntry* entry = list[at.position];
        if ((entry->attributes & attributeMask) == 0 || (entry->attributes & kAttrHidden) != 0)
            continue;
        if (at.index == index) {
            *place = at;
            *name = {entry->name, entry->nameUnits};
            return kOk;
        }
        ++at.index;
    }
    return kNoMore;
}

}  // namespace

Status NameAt(StorageContext* context, const WChar* pattern, uint32_t attributeMask, uint32_t index,
              ListPlace* place, platform::WStringView* name) {
    if (!context->searchEnabled) return kSearchOff;
    StorageTransaction* transaction = nullptr;
    Status status = BeginTransaction(context, &transaction, TransactionMode::Read);
    if (status != kOk) return status;
    ResolvedPath resolved;
    status = ResolvePath(context, pattern, true, true, false, &resolved, transaction);
    if (status == kOk) status = LoadDirectory(resolved.object, transaction);
    if (status == kOk) status = SortDirectory(resolved.object, transaction);
    if (status == kOk) status = FindIndex(resolved.object, attributeMask, index, place, name);
    ReleaseObjectChain(resolved.object);
    EndReadTransaction(context, transaction);
    return status;
}

}  // namespace storage
