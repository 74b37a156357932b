// SPDX-License-Identifier: MIT
// The grammar of the path string that opens a store.
#pragma once

#include "include/ZrFsTypes.h"
#include "platform/Text.h"

// What stands behind a store handle.
enum class BackendKind { None, Container, Native, Shell, Hive, Offline, Cluster, Ipc };

// What a path string and a method ask for. The views point into the path.
struct StoreRequest {
    BackendKind kind = BackendKind::None;  // None: the path or the method is refused
    bool remote = false;                   // the path began with "!REMOTE"
    platform::WStringView server;          // for Ipc: the name of the pipe
    platform::WStringView storePath;       // what the backend opens
    platform::WStringView mountName;       // for Hive: what stands behind the first "!"
};

// The path is cut at each "|", and empty parts are dropped:
//   STORE           a local store, by the method
//   !REMOTE|STORE   the same, with `remote` set; what follows is ignored
//   SERVER|STORE    a container with method 1, a server behind a pipe with any other
// For a hive, STORE is FILE!MOUNTNAME.
StoreRequest ParseStorePath(platform::WStringView path, FBR_METHOD method);
