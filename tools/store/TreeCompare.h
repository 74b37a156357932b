// SPDX-License-Identifier: MIT
// Compares a key and all below it with another one, of the same store or of another.
#pragma once

#include <functional>

#include "tools/store/Place.h"
#include "tools/store/Reach.h"

namespace fbr {

// Told of every difference, and of what is the same if it listens. Paths are relative to the two
// keys that are compared. The differences between the values of a key come before those below it,
// one key after the other.
class DifferenceSink {
  public:
    virtual ~DifferenceSink() = default;
    // A key, with all below it, that only one side has.
    virtual void KeyOnlyHere(platform::WStringView path) = 0;
    virtual void KeyOnlyThere(platform::WStringView path) = 0;
    // A value of a key that both have: null on a side that does not have it.
    virtual void ValueDiffers(platform::WStringView path, const platform::WString& name,
                              const Value* here, const Value* there) = 0;

    // A key that both have, before its values, and a value of it that is the same.
    virtual void KeyInBoth(platform::WStringView /*path*/, const Key& /*here*/,
                           const Key& /*there*/) {}
    virtual void ValueIsSame(const platform::WString& /*name*/, const Value& /*value*/) {}
};

// Names are matched as a container matches them. A version value of either store is left out.
// `onKey` is told of each key of `here`, `onLoss` of what either side lists and does not give, and
// which is not compared; both may be empty. Throws StoreError, also when one of the two keys is not
// there.
void CompareTrees(const Place& here, const Place& there, DifferenceSink& sink,
                  const std::function<void()>& onKey, const OnLoss& onLoss);

}  // namespace fbr
