// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/Backends.h"
#include "FS_Library_DLL/native/FsNativeRegistryImpl.h"

std::unique_ptr<IFSInterface> CreateNativeBackend(bool pathOnly) {
    return std::make_unique<FsNativeRegistryImpl>(pathOnly);
}
