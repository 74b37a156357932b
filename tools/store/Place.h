// SPDX-License-Identifier: MIT
// A key of an open store, as an end of a copy or a comparison.
#pragma once

#include "tools/store/Store.h"

namespace fbr {

struct Place {
    const Store& store;
    platform::WString key;
};

// The path of `relative` below `key`; either may be empty.
platform::WString JoinKeys(platform::WStringView key, platform::WStringView relative);

// The rest of `path`, which begins with `key`.
platform::WStringView PathBelow(platform::WStringView path, platform::WStringView key);

// The number of names in a path, the last of them, and what stands in front of that.
size_t DepthOf(platform::WStringView path);
platform::WStringView NameOf(platform::WStringView path);
platform::WStringView PathAbove(platform::WStringView path);

// True when `path` is `key` or stands below it; names compare as in a container.
bool IsAtOrBelow(platform::WStringView path, platform::WStringView key);

// The name of the value by which a container or a hive is known to be a store.
bool IsVersionName(platform::WStringView name);

// True for the value that tells the version of a store: it is the store's own, and no content.
// `relative` is the path of the value's key below the place.
bool IsStoresOwn(const Place& place, platform::WStringView relative, platform::WStringView name);

}  // namespace fbr
