// SPDX-License-Identifier: MIT
#include "tools/store/NewKeys.h"

#include <algorithm>

namespace fbr {

using platform::WString;

NewKeys::NewKeys(const Store& store, WString path) : store_(store), path_(std::move(path)) {
    if (store.HasKey(path_)) return;
    const auto next = [this](size_t from) {
        return std::min(path_.find('\\', from), path_.size());
    };
    uppermost_ = next(0);
    while (uppermost_ < path_.size() && store.HasKey(path_.substr(0, uppermost_)))
        uppermost_ = next(uppermost_ + 1);
}

// False for a key that holds something.
bool NewKeys::DeleteEmpty(const WString& path) const {
    if (!store_.HasKey(path)) return true;
    Key key = store_.OpenKey(path);
    std::vector<WString> values;
    key.AddValueNames(values);
    if (!values.empty() || key.HasSubkeys()) return false;
    key.Delete();
    return true;
}

NewKeys::~NewKeys() {
    if (uppermost_ == 0) return;
    try {
        for (size_t end = path_.size(); DeleteEmpty(path_.substr(0, end));
             end = path_.rfind('\\', end - 1))
            if (end <= uppermost_) return;
    } catch (const std::exception&) {
        // the failure that led here is the one to tell
    }
}

}  // namespace fbr
