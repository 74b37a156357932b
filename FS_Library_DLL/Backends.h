// SPDX-License-Identifier: MIT
// The makers of the stores. One function a kind, each in a file of its own, so that a system gets
// the backends it can have; the others answer FSSTATUS_NOT_IMPLEMENTED when they are opened.
#pragma once

#include <memory>

#include "FS_Library_DLL/IFSInterface.h"

// None of them touches a store: slot 1 opens it. They throw std::bad_alloc.
std::unique_ptr<IFSInterface> CreateContainerBackend();
std::unique_ptr<IFSInterface> CreateShellBackend();  // FsVarnholdTarnImpl
// `pathOnly` is the remote flag of the path string.
std::unique_ptr<IFSInterface> CreateNativeBackend(bool pathOnly);
// `mountName` is the name below HKEY_USERS under which the hive is mounted.
std::unique_ptr<IFSInterface> CreateHiveBackend(const WString& mountName);
std::unique_ptr<IFSInterface> CreateOfflineBackend();
std::unique_ptr<IFSInterface> CreateClusterBackend();
// `method` travels to the server as the caller gave it, whatever its value.
std::unique_ptr<IFSInterface> CreateIpcBackend(FBR_METHOD method, const WString& server);
