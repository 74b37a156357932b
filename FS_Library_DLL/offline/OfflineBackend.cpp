// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/Backends.h"
#include "FS_Library_DLL/offline/FsOfflineRegistryImpl.h"

std::unique_ptr<IFSInterface> CreateOfflineBackend() {
    return std::make_unique<FsOfflineRegistryImpl>();
}
