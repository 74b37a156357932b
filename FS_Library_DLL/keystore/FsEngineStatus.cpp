// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsEngineStatus.h"

FBR_STATUS FsStatusFromEngine(storage::Status code) {
    switch (code) {
        case storage::kOk:
            return FSSTATUS_SUCCESS;
        case storage::kTreeDelete:
            return FSSTATUS_TREE_DELETE_FAILED;
        case storage::kVersion:
            return FSSTATUS_VERSION_MISMATCH;
        case storage::kNotEmpty:
            return FSSTATUS_DIR_NOT_EMPTY;
        case storage::kInvalid:
            return FSSTATUS_INVALID_PARAMETER;
        case storage::kNoMore:
            return FSSTATUS_NO_MORE_ENTRIES;
        case storage::kSharing:
            return FSSTATUS_LOCK_FAILED;
        case storage::kNotFound:
            return FSSTATUS_NOT_FOUND;
        case storage::kExists:
            return FSSTATUS_ALREADY_EXISTS;
        case storage::kCorrupt:
            return FSSTATUS_FILE_CORRUPT;
        case 3:
            return FSSTATUS_PATH_NOT_FOUND;  // Win32 codes that the file layer lets through
        case 123:
            return FSSTATUS_INVALID_NAME;
        default:
            return FSSTATUS_FAILED;
    }
}
