// SPDX-License-Identifier: MIT
#include "tools/store/Place.h"

#include <algorithm>

namespace fbr {

using platform::CompareFolded;
using platform::WString;
using platform::WStringView;

WString JoinKeys(WStringView key, WStringView relative) {
    WString path(key);
    if (!key.empty() && !relative.empty()) path += '\\';
    return path += relative;
}

WStringView PathBelow(WStringView path, WStringView key) {
    const size_t above = key.empty() ? 0 : key.size() + 1;
    return path.size() > above ? path.substr(above) : WStringView();
}

size_t DepthOf(WStringView path) {
    if (path.empty()) return 0;
    return 1 + static_cast<size_t>(std::count(path.begin(), path.end(), '\\'));
}

WStringView NameOf(WStringView path) {
    return path.substr(path.rfind('\\') + 1);
}

WStringView PathAbove(WStringView path) {
    const size_t last = path.rfind('\\');
    return path.substr(0, last == WStringView::npos ? 0 : last);
}

bool IsAtOrBelow(WStringView path, WStringView key) {
    if (key.empty()) return true;
    if (path.size() < key.size() || CompareFolded(path.substr(0, key.size()), key) != 0) {
        return false;
    }
    return path.size() == key.size() || path[key.size()] == '\\';
}

bool IsVersionName(WStringView name) {
    return CompareFolded(name, WTEXT("FBRVersion")) == 0;
}

bool IsStoresOwn(const Place& place, WStringView relative, WStringView name) {
    return place.key.empty() && relative.empty() && place.store.RootHasVersion() &&
           IsVersionName(name);
}

}  // namespace fbr
