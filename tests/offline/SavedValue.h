// SPDX-License-Identifier: MIT
// Offline stores, and one value of theirs, each time with an opening and a close.
#pragma once

#include "tests/support/Store.h"

namespace offline_test {

using platform::WChar;
using platform::WString;
using support::Bytes;

struct Offline : support::Store {
    explicit Offline(const support::Text& path) : Store(path, FS_VR_METHOD_OFFLINE) {}
};

// Opens, sets the root's value "v", closes. The first failure.
inline FBR_STATUS Save(const WString& path, const Bytes& data) {
    Offline store(path);
    if (store.status != FSSTATUS_SUCCESS) return store.status;
    const FBR_STATUS status = store.Set(store.Root(), "v", data);
    const FBR_STATUS closed = store.Close();
    return status != FSSTATUS_SUCCESS ? status : closed;
}

inline Bytes Load(const WString& path) {
    Offline store(path);
    const auto data = store.Get(store.Root(), "v");
    EXPECT_TRUE(data.has_value());
    return data.value_or(Bytes());
}

inline size_t FilesIn(const support::TempDir& dir) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(dir.Path()), {}));
}

}  // namespace offline_test
