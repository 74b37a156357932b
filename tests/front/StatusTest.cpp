// The conversions between statuses and the platform's codes.
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
    EXPECT_EQ(FsError::ToWin32(FSSTATUS_SUCCESS), 0u);
    EXPECT_EQ(FsError::ToWin32(FSSTATUS_NO_MORE_ENTRIES), 259u);
    EXPECT_EQ(FsError::ToWin32(FSSTATUS_FILE_CORRUPT), 1392u);
    EXPECT_EQ(FsError::ToWin32(FSSTATUS_INVALID_HANDLE), 6u);
    EXPECT_EQ(static_cast<uint32_t>(FsError::ToNtStatus(FSSTATUS_ALREADY_EXISTS)), 0xC0000121u);
    EXPECT_EQ(static_cast<uint32_t>(FsError::ToNtStatus(FSSTATUS_MODULE_NOT_FOUND)), 0xC0000135u);
    EXPECT_LT(FsError::ToNtStatus(FSSTATUS_BUFFER_OVERFLOW), 0);
}

TEST(FsError, WhatHasNoRowIsAGeneralFailure) {
    for (const int value : {19, 20, 1000, -1}) {
        EXPECT_EQ(FsError::ToWin32(AnyStatus(value)), 31u) << value;
        EXPECT_EQ(static_cast<uint32_t>(FsError::ToNtStatus(AnyStatus(value))), 0xC0000001u)
            << value;
    }
    EXPECT_EQ(OfWin32(0xFFFFFFFF), FSSTATUS_FAILED);
    EXPECT_EQ(OfNt(0xC0000135 + 1), FSSTATUS_FAILED);
}

TEST(FsError, TheLastStatusOfASharedCodeWins) {
    EXPECT_EQ(OfWin32(87), FSSTATUS_INVALID_NAME);
    EXPECT_EQ(OfWin32(31), FSSTATUS_NOT_IMPLEMENTED);
    EXPECT_EQ(OfNt(0xC000000D), FSSTATUS_INVALID_NAME);
    EXPECT_EQ(OfNt(0xC0000001), FSSTATUS_FAILED);
    EXPECT_EQ(OfNt(0xC0000002), FSSTATUS_NOT_IMPLEMENTED);
}

// The same 32 bits are another code with the other sign.
TEST(FsError, SignednessPicksTheOverload) {
    EXPECT_EQ(OfWin32(2), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(OfNt(2), FSSTATUS_FAILED);
    EXPECT_EQ(OfNt(0xC0000034), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(OfWin32(0xC0000034), FSSTATUS_FAILED);
    EXPECT_EQ(OfWin32(0), FSSTATUS_SUCCESS);
    EXPECT_EQ(OfNt(0), FSSTATUS_SUCCESS);
}

TEST(FsError, UnsharedCodesComeBack) {
    for (int value = 0; value <= 18; ++value) {
        const FBR_STATUS status = AnyStatus(value);
        if (status == FSSTATUS_INVALID_PARAMETER || status == FSSTATUS_VERSION_MISMATCH) continue;
        EXPECT_EQ(FsError::ToFsStatus(FsError::ToNtStatus(status)), status);
        if (status == FSSTATUS_FAILED) continue;  // 31 is FSSTATUS_NOT_IMPLEMENTED
        EXPECT_EQ(FsError::ToFsStatus(FsError::ToWin32(status)), status);
    }
}

TEST(EngineStatus, EveryCodeHasItsStatus) {
    const struct {
        storage::Status code;
        FBR_STATUS status;
    } rows[] = {
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
    for (const auto& row : rows) EXPECT_EQ(FsStatusFromEngine(row.code), row.status) << row.code;
    for (const storage::Status code : {-200, -31, -19, -17, -11, -9, -1, 1, 2, 5, 80, 124})
        EXPECT_EQ(FsStatusFromEngine(code), FSSTATUS_FAILED) << code;
}

}  // namespace
