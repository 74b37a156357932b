// SPDX-License-Identifier: MIT
// Keys on the way to what may then fail.
#pragma once

#include "tools/store/Store.h"

namespace fbr {

// Remembers which keys on the way to a key are missing, for whoever makes them. Those that were
// made go again with the object, as far as that can be done, unless they are to stay, or somebody
// put something there: a store behind a server, say, has others between two calls.
class NewKeys {
  public:
    // The write lock is held for as long as the object lives. Throws the StoreError when it cannot
    // be known what is there.
    NewKeys(const Store& store, platform::WString path);
    ~NewKeys();
    NewKeys(const NewKeys&) = delete;
    NewKeys& operator=(const NewKeys&) = delete;

    void Stay() { uppermost_ = 0; }

  private:
    bool DeleteEmpty(const platform::WString& path) const;

    const Store& store_;
    const platform::WString path_;
    size_t uppermost_ = 0;  // so many units of the path name the first that is missing; 0 for none
};

}  // namespace fbr
