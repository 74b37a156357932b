// SPDX-License-Identifier: MIT
// The functions of NtDll.dll that build the label, looked up at run time.
#pragma once

#include <windows.h>
#include <winternl.h>

namespace security {

struct LabelFunctions {
    NTSTATUS(NTAPI* initializeSid)(PSID, PSID_IDENTIFIER_AUTHORITY, UCHAR) = nullptr;
    PULONG(NTAPI* subAuthoritySid)(PSID, ULONG) = nullptr;
    BOOLEAN(NTAPI* validSid)(PSID) = nullptr;
    ULONG(NTAPI* lengthSid)(PSID) = nullptr;
    NTSTATUS(NTAPI* createAcl)(PACL, ULONG, ULONG) = nullptr;
    NTSTATUS(NTAPI* addAce)(PACL, ULONG, ULONG, PVOID, ULONG) = nullptr;
    NTSTATUS(NTAPI* createSecurityDescriptor)(PSECURITY_DESCRIPTOR, ULONG) = nullptr;
    NTSTATUS(NTAPI* setSaclSecurityDescriptor)
    (PSECURITY_DESCRIPTOR, BOOLEAN, PACL, BOOLEAN) = nullptr;
    BOOLEAN(NTAPI* validSecurityDescriptor)(PSECURITY_DESCRIPTOR) = nullptr;
};

// What NtDll.dll offers; a function that it lacks is null.
LabelFunctions LookUpLabelFunctions();

// For tests: the functions that labels are built with from now on; null for those of NtDll.dll.
// Not to be changed while another thread builds a label.
void SetLabelFunctions(const LabelFunctions* functions);

}  // namespace security
