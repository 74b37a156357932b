// SPDX-License-Identifier: MIT
// Links: objects whose stream is the path that stands in their place.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

// Separators of a path: these three and the container's own.
inline bool IsSeparator(WChar unit, WChar separator) {
    return unit == separator || unit == '\\' || unit == '/' || unit == ':';
}

// The link's target, which stays valid while the object lives. kNoLink, kSharing when the object
// is in a transaction, kInternal when the stream is shorter than its size.
Status ReadLinkTarget(FileObject* link, platform::WStringView* target);

}  // namespace storage
