// SPDX-License-Identifier: MIT
// Runs a function with the privileges that loading and saving hives takes.
#pragma once

#include <functional>

#include "include/ZrFsTypes.h"

// Runs `function` as the process itself (the calling thread's impersonation, if any, is put aside)
// with SeBackupPrivilege and SeRestorePrivilege on. When either, or the process's identity, cannot
// be had the function is not run and the result is FSSTATUS_ACCESS_DENIED. What was changed is put
// back in all cases, the privileges by the last of several threads. Any thread.
FBR_STATUS RunWithHivePrivileges(const std::function<FBR_STATUS()>& function);
