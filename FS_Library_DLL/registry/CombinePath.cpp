// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/registry/CombinePath.h"

#include "platform/HostPath.h"

using platform::kLongPathPrefix;
using platform::WString;
using platform::WStringView;

namespace {

bool DropPrefix(WStringView& path) {
    if (!path.starts_with(kLongPathPrefix)) return false;
    path.remove_prefix(kLongPathPrefix.size());
    return true;
}

}  // namespace

WString CombinePath(WStringView base, WStringView relative) {
    if (base.empty()) return WString(relative);
    if (relative.empty()) return WString(base);
    const bool prefixed = DropPrefix(base);
    DropPrefix(relative);

    WString joined;
    joined.reserve(kLongPathPrefix.size() + base.size() + 1 + relative.size());
    if (prefixed) joined = kLongPathPrefix;
    joined += base;
    if (!base.empty() && base.back() != '\\') joined += '\\';
    if (relative.starts_with('\\')) relative.remove_prefix(1);
    return joined += relative;
}
