// SPDX-License-Identifier: MIT
// Exported text as a store: a container that holds what the text says, for as long as it is read.
#pragma once

#include <filesystem>

#include "tools/console/TempFolder.h"
#include "tools/store/Store.h"

namespace fbr {

class TextStore {
  public:
    // Reads the file, or all exports of the folder one after the other. Throws what is wrong with
    // them.
    explicit TextStore(const StoreName& text);
    TextStore(const TextStore&) = delete;
    TextStore& operator=(const TextStore&) = delete;

    platform::WString Container() const;
    // Call it when the container is open: where a file may go that is open, it goes, so that
    // nothing stays behind whatever happens.
    void Opened() const noexcept;

  private:
    const TempFolder folder_;
};

}  // namespace fbr
