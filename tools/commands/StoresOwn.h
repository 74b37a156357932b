// SPDX-License-Identifier: MIT
// Content without what is the store's own.
#pragma once

#include <utility>

#include "tools/store/Place.h"

namespace fbr {

// Hands on to `sink` all but the value that tells the version of the store. Its keys are paths
// from the root.
class WithoutStoresOwn : public RecordSink {
  public:
    WithoutStoresOwn(Place root, RecordSink& sink) : root_(std::move(root)), sink_(sink) {}

    void Key(platform::WStringView path) override {
        path_ = path;
        sink_.Key(path);
    }
    void Value(platform::WStringView name, uint32_t type, const Bytes& data) override {
        if (!IsStoresOwn(root_, path_, name)) sink_.Value(name, type, data);
    }

  private:
    const Place root_;
    RecordSink& sink_;
    platform::WString path_;
};

}  // namespace fbr
