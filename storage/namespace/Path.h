// SPDX-License-Identifier: MIT
// From a path to an object.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

// What a path leads to. The object comes with a reference on it and on each ancestor, to be given
// back with ReleaseObjectChain.
struct ResolvedPath {
    FileObject* object = nullptr;    // the directory in parent mode, else the object itself
    platform::WStringView lastName;  // the last component
    platform::WStringView prefix;    // up to and including the separator before it
    WChar* storage = nullptr;        // holds the text of a path that links replaced

    ResolvedPath() = default;
    ResolvedPath(const ResolvedPath&) = delete;
    ResolvedPath& operator=(const ResolvedPath&) = delete;
    ~ResolvedPath();
};

// `parentMode` stops at the directory of the last component, which need not exist.
// `wantsPrefix` asks for the prefix, so that a path to the root is refused.
Status ResolvePath(StorageContext* context, const WChar* path, bool parentMode, bool wantsPrefix,
                   bool followLastLink, ResolvedPath* resolved, StorageTransaction* transaction);

// The path that comes of replacing a link: prefix + target + rest, "." and ".." applied. The
// result is a heap string. kBadPath, kNoMemory.
Status NormalizePath(WChar** path, WChar separator, platform::WStringView prefix,
                     platform::WStringView target, platform::WStringView rest);

}  // namespace storage
