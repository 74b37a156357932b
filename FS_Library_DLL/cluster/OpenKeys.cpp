// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/OpenKeys.h"

namespace cluster {
namespace {

bool IsWithin(WStringView path, WStringView above) {
    return path.size() >= above.size() &&
           platform::CompareFolded(path.substr(0, above.size()), above) == 0 &&
           (path.size() == above.size() || path[above.size()] == '\\');
}

}  // namespace

int64_t OpenKeys::Add(OpenedKey key) {
    keys_.emplace(++last_, std::move(key));
    return last_;
}

const OpenedKey* OpenKeys::Find(int64_t handle) const {
    const auto found = keys_.find(handle);
    return found == keys_.end() ? nullptr : &found->second;
}

void OpenKeys::Rename(const WString& path, const WString& newPath) {
    for (auto& [handle, key] : keys_)
        if (IsWithin(key.path, path)) key.path = newPath + key.path.substr(path.size());
}

void OpenKeys::Forget(const WString& path) {
    std::erase_if(keys_, [&](const auto& entry) { return IsWithin(entry.second.path, path); });
}

}  // namespace cluster
