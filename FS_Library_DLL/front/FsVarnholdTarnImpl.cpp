// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/front/FsVarnholdTarnImpl.h"

#include "FS_Library_DLL/Backends.h"

std::unique_ptr<IFSInterface> CreateShellBackend() {
    return std::make_unique<FsVarnholdTarnImpl>();
}
