// SPDX-License-Identifier: MIT
#include "tools/store/NewKeys.h"

#include <algorithm>

namespace fbr {

NewKeys::NewKeys(const Store& store, const platform::WString& path) : store_(store) {
    if (store.HasKey(path)) return;
    size_t end = std::min(path.find('\\'), path.size());
    while (end < path.size() && store.HasKey(path.substr(0, end)))
        end = std::min(path.find('\\', end + 1), path.size());
    uppermost_ = path.substr(0, end);
}

NewKeys::~NewKeys() {
    if (uppermost_.empty()) return;
    try {
        store_.DeleteTree(uppermost_);
    } catch (const std::exception&) {
        // the failure that led here is the one to tell
    }
}

}  // namespace fbr
