// SPDX-License-Identifier: MIT
// The frame of the operations that callers see: a line of the trace at the begin and at the end,
// and the engine's code as a status.
#pragma once

#include "FS_Library_DLL/HeapString.h"
#include "FS_Library_DLL/keystore/FsEngineStatus.h"
#include "FS_Library_DLL/keystore/FsKeys.h"
#include "FS_Library_DLL/keystore/FsTrace.h"

class FsFrame {
  public:
    template <class... Fields>
    FsFrame(const char* function, const char* line, const Fields&... fields)
        : trace_(function, line, fields...) {}

    // The status of `code`. The line ends with it and the time, behind the fields.
    template <class... Fields>
    FBR_STATUS Leave(storage::Status code, const char* line, const Fields&... fields) const {
        const FBR_STATUS status = FsStatusFromEngine(code);
        trace_.Exit(line, fields..., status);
        return status;
    }
    // Its line begins with the full name of `key`, null for what is no open key.
    template <class... Fields>
    FBR_STATUS LeaveNamed(storage::Status code, int64_t key, FsStoreContext* context,
                          const char* line, const Fields&... fields) const {
        HeapString name;
        if (trace_.On()) FS_GetFullName_DirEx(key, &name.text, context);
        return Leave(code, line, name.text, fields...);
    }

  private:
    const FsTraceScope trace_;
};
