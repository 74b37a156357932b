// SPDX-License-Identifier: MIT
// The open keys of a store: numbers that are looked up and never followed.
#pragma once

#include <cstdint>
#include <unordered_map>

#include "FS_Library_DLL/cluster/ClusterNames.h"

namespace cluster {

struct OpenedKey {
    std::string id;
    WString path;  // with a leading backslash; empty for the root
    int64_t lease = 0;
    std::string parent = {};  // its id; empty for the root
};

class OpenKeys {
  public:
    int64_t Add(OpenedKey key);
    // Null when it is not open.
    const OpenedKey* Find(int64_t handle) const;
    bool Close(int64_t handle) { return keys_.erase(handle) != 0; }

    // A key's name has changed: what was opened at it and below it follows.
    void Rename(const WString& path, const WString& newPath);
    // The key is gone, and all below it.
    void Forget(const WString& path);

  private:
    std::unordered_map<int64_t, OpenedKey> keys_;
    int64_t last_ = int64_t{1} << 32;  // unlike any number that a caller makes up
};

}  // namespace cluster
