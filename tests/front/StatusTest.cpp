// SPDX-License-Identifier: MIT
// The conversions between statuses and the platform's codes, and of the engine's.
#include <gtest/gtest.h>

#include "FS_Library_DLL/keystore/FsEngineStatus.h"
#include "include/FsError.h"

namespace {

FBR_STATUS OfWin32(uint32_t code) {
    return FsError::ToFsStatus(FBR_WIN32ERROR{code});
}
FBR_STATUS OfNt(uint32_t code) {
    return FsError::ToFsStatus(static_cast<FBR_NTSTATUS>(code));
}
FBR_STATUS AnyStatus(int value) {
    return static_cast<FBR_STATUS>(value);
}

TEST(FsError, StatusesStandForPlatformCodes) {
    const struct {
        int status;
        uint32_t win32, nt;
    } rows[] = {
        {FSSTATUS_SUCCESS, 0, 0},
        {FSSTATUS_NO_MORE_ENTRIES, 259, 0x8000001A},
        {FSSTATUS_FILE_CORRUPT, 1392, 0xC0000102},
        {FSSTATUS_INVALID_HANDLE, 6, 0xC0000008},
        // What has no row is a general failure.
        {19, 31, 0xC0000001},
        {20, 31, 0xC0000001},
        {1000, 31, 0xC0000001},
        {-1, 31, 0xC0000001},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FsError::ToWin32(AnyStatus(row.status)), row.win32) << row.status;
        EXPECT_EQ(static_cast<uint32_t>(FsError::ToNtStatus(AnyStatus(row.status))), row.nt)
            << row.status;
    }
    EXPECT_LT(FsError::ToNtStatus(FSSTATUS_BUFFER_OVERFLOW), 0);
}

// The last status of a shared code wins. The same 32 bits are another code with the other sign.
TEST(FsError, PlatformCodesStandForStatuses) {
    const struct {
        uint32_t code;
        FBR_STATUS win32, nt;
    } rows[] = {
        {0, FSSTATUS_SUCCESS, FSSTATUS_SUCCESS},
        {2, FSSTATUS_NOT_FOUND, FSSTATUS_FAILED},
        {87, FSSTATUS_INVALID_NAME, FSSTATUS_FAILED},
        {31, FSSTATUS_NOT_IMPLEMENTED, FSSTATUS_FAILED},
        {0xC0000034, FSSTATUS_FAILED, FSSTATUS_NOT_FOUND},
        {0xC000000D, FSSTATUS_FAILED, FSSTATUS_INVALID_NAME},
        {0xC0000001, FSSTATUS_FAILED, FSSTATUS_FAILED},
        {0xC0000002, FSSTATUS_FAILED, FSSTATUS_NOT_IMPLEMENTED},
        {0xC0000136, FSSTATUS_FAILED, FSSTATUS_FAILED},
        {0xFFFFFFFF, FSSTATUS_FAILED, FSSTATUS_FAILED},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(OfWin32(row.code), row.win32) << row.code;
        EXPECT_EQ(OfNt(row.code), row.nt) << row.code;
    }
    for (int value = 0; value <= 18; ++value) {
        const FBR_STATUS status = AnyStatus(value);
        if (status == FSSTATUS_INVALID_PARAMETER || status == FSSTATUS_VERSION_MISMATCH) continue;
        EXPECT_EQ(FsError::ToFsStatus(FsError::ToNtStatus(status)), status);
        if (status == FSSTATUS_FAILED) continue;  // 31 is FSSTATUS_NOT_IMPLEMENTED
        EXPECT_EQ(FsError::ToFsStatus(FsError::ToWin32(status)), status);
    }
}

TEST(EngineStatus, EveryCodeHasItsStatus) {
    const std::pair<storage::Status, FBR_STATUS> rows[] = {
        {-202, FSSTATUS_TREE_DELETE_FAILED},
        {-201, FSSTATUS_VERSION_MISMATCH},
        {-28, FSSTATUS_DIR_NOT_EMPTY},
        {-24, FSSTATUS_INVALID_PARAMETER},
        {-12, FSSTATUS_NO_MORE_ENTRIES},
        {-10, FSSTATUS_LOCK_FAILED},
        {-8, FSSTATUS_NOT_FOUND},
        {-5, FSSTATUS_ALREADY_EXISTS},
        {-3, FSSTATUS_FILE_CORRUPT},
        {0, FSSTATUS_SUCCESS},
        {3, FSSTATUS_PATH_NOT_FOUND},
        {123, FSSTATUS_INVALID_NAME},
    };
    for (const auto& [code, status] : rows) EXPECT_EQ(FsStatusFromEngine(code), status) << code;
    for (const storage::Status code : {-200, -31, -19, -17, -11, -9, -1, 1, 2, 5, 80, 124})
        EXPECT_EQ(FsStatusFromEngine(code), FSSTATUS_FAILED) << code;
}

}  // namespace
