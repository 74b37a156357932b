// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/Backends.h"
#include "FS_Library_DLL/hive/FsHiveRegistryImpl.h"

std::unique_ptr<IFSInterface> CreateHiveBackend(const WString& mountName) {
    return std::make_unique<FsHiveRegistryImpl>(mountName);
}
