// SPDX-License-Identifier: MIT
// An open store of a contract test.
#pragma once

#include "tests/contract/Backend.h"
#include "tests/shared/LogCapture.h"
#include "tests/support/Store.h"

namespace contract {

using support::OpenKey;
using support::Text;

class OpenStore : public support::Store {
  public:
    explicit OpenStore(Place& place) : Store(place.Path(), place.Method()), place_(place) {
        if (handle != nullptr) place_.Opened(handle);
    }
    ~OpenStore() { Close(); }
    using Store::Close;
    FBR_STATUS Close() {
        if (handle != nullptr) place_.Closing(handle);
        return Store::Close();
    }

  private:
    Place& place_;
};

// A test on one kind of store, which leaves the process as it found it. What the system opens once
// for good, it has opened before by a store of that kind, and GoogleTest for its traces.
class StoreTest : public testing::Test {
  protected:
    explicit StoreTest(const Backend& backend, bool leavesNoHandle = true)
        : backend_(backend), leavesNoHandle_(leavesNoHandle && backend.leavesNoHandle) {}
    void SetUp() override {
        {
            SCOPED_TRACE("before");
            const LogCapture log;
            const auto place = backend_.makePlace();
            OpenStore store(*place);
            EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
            store.TryMake("k");
        }
        before_ = ProcessState();
    }
    void TearDown() override {
        if (leavesNoHandle_) {
            EXPECT_EQ(ProcessState(), before_);
        }
    }
    const Backend backend_;

  private:
    const bool leavesNoHandle_;
    std::string before_;
};

}  // namespace contract
