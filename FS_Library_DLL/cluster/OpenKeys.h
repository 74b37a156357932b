// SPDX-License-Identifier: MIT
// The open keys of a store: numbers that are looked up and never followed.
#pragma once

#include <cstdint>
#include <unordered_map>

#include "FS_Library_DLL/cluster/ClusterNames.h"

namespace cluster {

// The keys on a way down, of which it remembers one, and after twice as many steps a later one: of
// those in a circle each comes again and again, so it meets one before long.
class WayDown {
  public:
    void Step(const std::string& id) {
        isCircle_ = isCircle_ || id == remembered_;
        if (++steps_ != next_) return;
        remembered_ = id;
        next_ *= 2;
    }
    bool IsCircle() const { return isCircle_; }

  private:
    std::string remembered_;
    uint64_t steps_ = 0, next_ = 1;
    bool isCircle_ = false;
};

struct OpenedKey {
    std::string id;
    WString path;  // with a leading backslash; empty for the root
    int64_t lease = 0;
    std::string parent = {};  // its id; empty for the root
    WayDown way = {};         // that it was opened by
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
