// SPDX-License-Identifier: MIT
// Conversion between the library's statuses and the platform's codes, for C++ callers.
#ifndef FSERROR_H
#define FSERROR_H

#include "ZrFsTypes.h"

// The platform's two kinds of result: an NTSTATUS is signed, a Win32 code is not. They are the
// same 32 bits on every system, and their signedness alone picks the overload of ToFsStatus.
#if defined(_WIN32)
typedef long FBR_NTSTATUS;
typedef unsigned long FBR_WIN32ERROR;
#else
typedef int32_t FBR_NTSTATUS;
typedef uint32_t FBR_WIN32ERROR;
#endif

// Pure look-ups; any thread.
class FsError {
  public:
    // The Win32 code that a status stands for; 31 (ERROR_GEN_FAILURE) for
    // FSSTATUS_TREE_DELETE_FAILED and for what is no status.
    FBR_API static FBR_WIN32ERROR ToWin32(FBR_STATUS status);
    // The NTSTATUS that a status stands for; 0xC0000001 where there is none.
    FBR_API static FBR_NTSTATUS ToNtStatus(FBR_STATUS status);
    // The status of an NTSTATUS or of a Win32 code; FSSTATUS_FAILED for one that none stands for.
    // Where several statuses share a code the highest one is the answer: 87 and 0xC000000D are
    // FSSTATUS_INVALID_NAME, 31 is FSSTATUS_NOT_IMPLEMENTED.
    FBR_API static FBR_STATUS ToFsStatus(FBR_NTSTATUS status);
    FBR_API static FBR_STATUS ToFsStatus(FBR_WIN32ERROR code);
};

#endif
