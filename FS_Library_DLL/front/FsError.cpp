// SPDX-License-Identifier: MIT
#include "include/FsError.h"

#include <iterator>

namespace {

struct Row {
    FBR_STATUS status;
    uint32_t win32;
    uint32_t ntStatus;
};

// In the order of the status, one row each; FSSTATUS_TREE_DELETE_FAILED has none.
constexpr Row kRows[] = {
    {FSSTATUS_SUCCESS, 0, 0x00000000},
    {FSSTATUS_FAILED, 31, 0xC0000001},
    {FSSTATUS_INVALID_PARAMETER, 87, 0xC000000D},
    {FSSTATUS_NOT_FOUND, 2, 0xC0000034},
    {FSSTATUS_BUFFER_OVERFLOW, 111, 0x80000005},
    {FSSTATUS_NO_MORE_ENTRIES, 259, 0x8000001A},
    {FSSTATUS_VERSION_MISMATCH, 87, 0xC000000D},
    {FSSTATUS_LOCK_FAILED, 167, 0xC0000055},
    {FSSTATUS_ALREADY_EXISTS, 183, 0xC0000121},  // STATUS_CANNOT_DELETE, by which callers know it
    {FSSTATUS_DIR_NOT_EMPTY, 145, 0xC0000101},
    {FSSTATUS_PATH_NOT_FOUND, 3, 0xC000003A},
    {FSSTATUS_INVALID_NAME, 87, 0xC000000D},
    {FSSTATUS_FILE_CORRUPT, 1392, 0xC0000102},
    {FSSTATUS_NOT_IMPLEMENTED, 31, 0xC0000002},
    {FSSTATUS_OUT_OF_MEMORY, 14, 0xC0000017},
    {FSSTATUS_ACCESS_DENIED, 5, 0xC0000022},
    {FSSTATUS_SHARING_VIOLATION, 32, 0xC0000043},
    {FSSTATUS_MODULE_NOT_FOUND, 126, 0xC0000135},
    {FSSTATUS_INVALID_HANDLE, 6, 0xC0000008},
};

const Row& RowOf(FBR_STATUS status) {
    const auto index = static_cast<uint32_t>(status);
    return kRows[index < std::size(kRows) ? index : static_cast<uint32_t>(FSSTATUS_FAILED)];
}

// The last of the rows that share a code is the answer, so the search runs from the end.
FBR_STATUS StatusOf(uint32_t Row::*column, uint32_t code) {
    for (auto row = std::rbegin(kRows); row != std::rend(kRows); ++row)
        if ((*row).*column == code) return row->status;
    return FSSTATUS_FAILED;
}

}  // namespace

FBR_WIN32ERROR FsError::ToWin32(FBR_STATUS status) {
    return RowOf(status).win32;
}

FBR_NTSTATUS FsError::ToNtStatus(FBR_STATUS status) {
    return static_cast<FBR_NTSTATUS>(RowOf(status).ntStatus);
}

FBR_STATUS FsError::ToFsStatus(FBR_NTSTATUS status) {
    return StatusOf(&Row::ntStatus, static_cast<uint32_t>(status));
}

FBR_STATUS FsError::ToFsStatus(FBR_WIN32ERROR code) {
    return StatusOf(&Row::win32, static_cast<uint32_t>(code));
}
