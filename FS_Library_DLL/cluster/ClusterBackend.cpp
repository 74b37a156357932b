// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/Backends.h"
#include "FS_Library_DLL/cluster/FsClusterImpl.h"

std::unique_ptr<IFSInterface> CreateClusterBackend() {
    return std::make_unique<FsClusterImpl>();
}
