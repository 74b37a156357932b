// SPDX-License-Identifier: MIT
// Enumeration of a directory with a wildcard, in the order of its sorted list.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

enum FindFlag : uint32_t {
    kFindFullName = 1,
    kFindTimes = 2,
    kFindSize = 4,
    kFindWithDots = 0x8000
};

// The search record: the caller's, filled by the engine, which owns the strings in it.
struct StorageSearchStruct {
    FindContext* search;  // null when closed
    WChar* fullName;      // with kFindFullName
    WChar* name;
    uint32_t attributes;
    double created, modified, accessed;  // with kFindTimes or kFindSize
    uint64_t size;
};
static_assert(sizeof(StorageSearchStruct) == 64);

// The caller holds containerLock.
Status FindFirst(StorageContext* context, StorageSearchStruct* record, const WChar* path,
                 uint32_t attributeMask, uint32_t flags) ZRFS_REQUIRES(context->containerLock);
Status FindNext(StorageContext* context, StorageSearchStruct* record)
    ZRFS_REQUIRES(context->containerLock);
Status FindClose(StorageContext* context, StorageSearchStruct* record)
    ZRFS_REQUIRES(context->containerLock);
// Gives up every search. A record that still holds its search is cleared.
void CloseSearches(StorageContext* context) ZRFS_REQUIRES(context->containerLock);
bool MatchPattern(platform::WStringView name, platform::WStringView pattern, bool caseSensitive);

}  // namespace storage
