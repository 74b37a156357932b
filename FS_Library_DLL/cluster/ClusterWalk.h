// SPDX-License-Identifier: MIT
// From a path to the id of a key.
#pragma once

#include "FS_Library_DLL/cluster/ClusterStore.h"

namespace cluster {

// The names in a path; empty ones do not count.
std::vector<WString> PartsOf(WStringView path);
WString PathOf(const WString& parent, const std::vector<WString>& parts);

// How far the parts of a path are there.
struct Walked {
    std::vector<Child> found;  // of the first parts
    // What a change compares that relies on it; few, for the store's lock says most of it.
    std::string LastId(const std::string& base) const {
        return found.empty() ? base : found.back().id;
    }
    // The last of them as an open key, which is the base itself for none.
    OpenedKey Last(const OpenedKey& base, const std::vector<WString>& parts) const;
};

// Walks on from the key `base` until a part is missing, on one state of the store.
FBR_STATUS Walk(ClusterStore& store, const std::string& base, const std::vector<WString>& parts,
                Walked* walked) ZRFS_REQUIRES(store.lock);

// Reads a record of a child. `record` is its key in the cluster.
bool ReadChildOf(const KeyValue& pair, const Span& children, Child* child, std::string* folded);

}  // namespace cluster
