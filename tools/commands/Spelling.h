// SPDX-License-Identifier: MIT
// How the names in a store are spelled, in whatever case one asks for them.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

#include "tools/commands/LastWords.h"
#include "tools/store/Store.h"

namespace fbr {

// Goes from key to key while nothing changes the store.
class Spelling {
  public:
    using OnNew = std::function<void(const platform::WString& path)>;

    // `store` is null for one that is not there yet; it and `hash` outlive the object.
    Spelling(const Store* store, const PlaceHash& hash);

    // Goes to the key at `path`. A key that the store does not have is spelled as it was met first;
    // `onNew` is told of it then, and of those above it before.
    void GoTo(platform::WStringView path, const OnNew& onNew);
    const platform::WString& Path() const { return levels_.back().path; }
    // The name of a value in that key; as it is asked for where there is none.
    platform::WString OfValue(platform::WStringView name);

  private:
    struct Before {
        using is_transparent = void;
        bool operator()(platform::WStringView a, platform::WStringView b) const {
            return platform::CompareFolded(a, b) < 0;
        }
    };
    using Names = std::set<platform::WString, Before>;
    struct Level {
        platform::WString path;
        bool there;  // in the store
        std::optional<Names> subkeys, values;
    };

    void GoDown(platform::WStringView path, platform::WStringView name, const OnNew& onNew);

    const Store* const store_;
    const PlaceHash& hash_;
    std::vector<Level> levels_;  // from the root to the key
    std::unordered_map<uint64_t, platform::WString> made_;
};

}  // namespace fbr
