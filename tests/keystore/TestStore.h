// SPDX-License-Identifier: MIT
// A container store in a folder of its own.
#pragma once

#include "tests/support/Store.h"

namespace keystore {

using platform::WChar;
using platform::WString;
using platform::WStringView;
using support::Bytes;
using support::kLockRead;
using support::kLockWrite;
using support::kLockWriteToo;
using support::kRegBinary;
using support::kRegDword;
using support::kRegSz;
using support::Names;
using support::Store;
using support::Taken;
using support::Text;

// A new store under a write lock.
class StoreTest : public testing::Test {
  protected:
    StoreTest() : path(dir.File("store.fbr")), store(path) {
        EXPECT_EQ(store.status, FSSTATUS_SUCCESS);
        EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    }

    support::TempDir dir;
    const WString path;
    Store store;
};

}  // namespace keystore
