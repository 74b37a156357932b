// One value of an offline store, each time with an opening and a close.
#pragma once

#include <filesystem>

#include "FS_Library_DLL/offline/FsOfflineRegistryImpl.h"
#include "tests/offline/OfflineHive.h"

namespace offline_test {

// Opens, sets the root's value "v", closes. The first failure.
inline FBR_STATUS Save(const WString& path, const Bytes& data) {
    FsOfflineRegistryImpl store;
    FBR_STATUS status = store.FBR_InitialiseEx(path.c_str());
    int64_t root = 0;
    if (status == FSSTATUS_SUCCESS) status = store.FBR_OpenDirEx(0, WTEXT(""), &root);
    if (status == FSSTATUS_SUCCESS) {
        status = store.FBR_SetValue(root, WTEXT("v"), 3, data.data(), data.size());
    }
    const FBR_STATUS closed = store.FBR_DeInitialiseEx();
    return status != FSSTATUS_SUCCESS ? status : closed;
}

inline Bytes Load(const WString& path) {
    FsOfflineRegistryImpl store;
    int64_t root = 0;
    Bytes data(1 << 20);
    uint64_t size = 0;
    EXPECT_EQ(store.FBR_InitialiseEx(path.c_str()), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.FBR_OpenDirEx(0, WTEXT(""), &root), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.FBR_QueryValue(root, WTEXT("v"), data.data(), data.size(), &size, nullptr),
              FSSTATUS_SUCCESS);
    EXPECT_EQ(store.FBR_DeInitialiseEx(), FSSTATUS_SUCCESS);
    data.resize(size);
    return data;
}

inline size_t FilesIn(const support::TempDir& dir) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(dir.Path()), {}));
}

}  // namespace offline_test
