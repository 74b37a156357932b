// SPDX-License-Identifier: MIT
// What the changes of keys have in common.
#pragma once

#include "FS_Library_DLL/cluster/ClusterStore.h"

namespace cluster {

inline Compare IsThere(std::string record) {
    return {Compare::What::Created, Compare::How::Greater, {std::move(record)}, 0};
}
inline Compare IsMissing(Span records) {
    return {Compare::What::Created, Compare::How::Equal, std::move(records), 0};
}

// Where a key is: by its record, for others may have renamed it since it was opened.
FBR_STATUS ReadKeyOf(ClusterStore& store, const OpenedKey& key, KeyRecord* record)
    ZRFS_REQUIRES(store.lock);

// Why a key that was opened has no record: FSSTATUS_NOT_FOUND when it was deleted. One that still
// hangs on its parent has lost it.
FBR_STATUS WhyMissing(ClusterStore& store, const OpenedKey& key) ZRFS_REQUIRES(store.lock);

// Where a key is: below which one, by which name. Of all records that lead to a key only one does
// from the place that the key's own record tells, so no walk comes to a key by two ways.
std::string PlaceText(const std::string& parent, platform::WStringView name);
std::string PlaceOf(const OpenedKey& key);

// FSSTATUS_FILE_CORRUPT where the key's record, which is one or none, tells of another place than
// it was found at, unless somebody renamed it since.
FBR_STATUS CheckPlace(ClusterStore& store, const OpenedKey& key, const KeyValue& record)
    ZRFS_REQUIRES(store.lock);
// FSSTATUS_FILE_CORRUPT for a key that was come to in a circle.
FBR_STATUS CheckWay(ClusterStore& store, const OpenedKey& key) ZRFS_REQUIRES(store.lock);

// When something in a key changed last, by its record and that of its time, if there is one. False
// where one of them is none.
bool TimeOf(const RangeReply& made, const RangeReply& changed, platform::UtcTime* time);

// Something below `parent` changes that hangs on `lease`, or on none.
FBR_STATUS TouchParent(ClusterStore& store, const std::string& parent, int64_t lease,
                       Change* change) ZRFS_REQUIRES(store.lock);

// What others changed beside the lock, they have changed: it is read again next time. The key is
// the one that seems to be missing.
FBR_STATUS AfterConflict(ClusterStore& store, const OpenedKey& key) ZRFS_REQUIRES(store.lock);

}  // namespace cluster
