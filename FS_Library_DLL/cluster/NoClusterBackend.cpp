// SPDX-License-Identifier: MIT
// Stands in where there is no such backend.
#include "FS_Library_DLL/Backends.h"

std::unique_ptr<IFSInterface> CreateClusterBackend() {
    return CreateShellBackend();
}
