// SPDX-License-Identifier: MIT
#include "tools/commands/Ends.h"

#include "tools/commands/Cli.h"

namespace fbr {
namespace {

// Stores of the live registry are keys of one and the same store.
WString LivePath(const End& end) {
    return JoinKeys(NormalKeyPath(Wide(end.store.path)), end.key);
}

}  // namespace

void ExpectNotStoresOwn(const Place& place, WStringView name) {
    if (IsStoresOwn(place, {}, name))
        throw UsageError("expected another value than FBRVersion, which is the store's own");
}

bool LeadsIntoItself(const End& from, const End& to) {
    const bool live =
        from.store.method == FS_VR_METHOD_NATIVE && to.store.method == from.store.method;
    if (live) return IsAtOrBelow(LivePath(to), LivePath(from));
    return IsSameStore(from.store, to.store) && IsAtOrBelow(to.key, from.key);
}

}  // namespace fbr
