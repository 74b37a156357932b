// SPDX-License-Identifier: MIT
// Keys on the way to what may then fail.
#pragma once

#include "tools/store/Store.h"

namespace fbr {

// Remembers which keys on the way to a key are missing, for whoever makes them. Those that were
// made go again with the object, as far as that can be done, unless they are to stay.
class NewKeys {
  public:
    // The write lock is held for as long as the object lives.
    NewKeys(const Store& store, const platform::WString& path);
    ~NewKeys();
    NewKeys(const NewKeys&) = delete;
    NewKeys& operator=(const NewKeys&) = delete;

    void Stay() { uppermost_.clear(); }

  private:
    const Store& store_;
    platform::WString uppermost_;  // of those missing; empty when none is
};

}  // namespace fbr
