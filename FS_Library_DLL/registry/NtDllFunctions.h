// SPDX-License-Identifier: MIT
// The native functions of NtDll.dll, the seam between the live registry backend and the platform.
#pragma once

#include <windows.h>
#include <winternl.h>

// One pointer for each function, null where the platform has no function of that name; callers
// test before they call. The order is part of the contract.
struct NtDllFunctions {
    using Informations = ULONG;  // an information class, whatever its enumeration is called

    NTSTATUS(NTAPI* ZwQueryAttributesFile)(POBJECT_ATTRIBUTES, PVOID basicInformation);
    NTSTATUS(NTAPI* ZwQueryInformationFile)(HANDLE, PIO_STATUS_BLOCK, PVOID, ULONG, Informations);
    NTSTATUS(NTAPI* ZwDeleteKey)(HANDLE);
    NTSTATUS(NTAPI* ZwCreateKey)
    (PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES, ULONG titleIndex, PUNICODE_STRING className,
     ULONG options, PULONG disposition);
    NTSTATUS(NTAPI* NtOpenThreadToken)(HANDLE thread, ACCESS_MASK, BOOLEAN asSelf, PHANDLE);
    NTSTATUS(NTAPI* NtOpenProcessToken)(HANDLE process, ACCESS_MASK, PHANDLE);
    NTSTATUS(NTAPI* NtQueryInformationToken)(HANDLE, Informations, PVOID, ULONG, PULONG);
    PULONG(NTAPI* RtlSubAuthoritySid)(PSID, ULONG index);
    PUCHAR(NTAPI* RtlSubAuthorityCountSid)(PSID);
    NTSTATUS(NTAPI* ZwClose)(HANDLE);
    NTSTATUS(NTAPI* ZwOpenKey)(PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES);
    NTSTATUS(NTAPI* ZwQueryKey)(HANDLE, Informations, PVOID, ULONG, PULONG);
    NTSTATUS(NTAPI* ZwQueryValueKey)
    (HANDLE, PUNICODE_STRING name, Informations, PVOID, ULONG, PULONG);
    NTSTATUS(NTAPI* ZwEnumerateKey)(HANDLE, ULONG index, Informations, PVOID, ULONG, PULONG);
    NTSTATUS(NTAPI* ZwRenameKey)(HANDLE, PUNICODE_STRING newName);
    NTSTATUS(NTAPI* ZwSetValueKey)
    (HANDLE, PUNICODE_STRING name, ULONG titleIndex, ULONG type, PVOID data, ULONG size);
    NTSTATUS(NTAPI* ZwDeleteValueKey)(HANDLE, PUNICODE_STRING name);
    NTSTATUS(NTAPI* ZwEnumerateValueKey)(HANDLE, ULONG index, Informations, PVOID, ULONG, PULONG);
    VOID(NTAPI* RtlInitUnicodeString)(PUNICODE_STRING, PCWSTR);
    NTSTATUS(NTAPI* ZwDuplicateObject)
    (HANDLE fromProcess, HANDLE, HANDLE toProcess, PHANDLE, ACCESS_MASK, ULONG attributes,
     ULONG options);
    NTSTATUS(NTAPI* ZwOpenFile)
    (PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES, PIO_STATUS_BLOCK, ULONG share, ULONG options);
    NTSTATUS(NTAPI* ZwCreateFile)
    (PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES, PIO_STATUS_BLOCK, PLARGE_INTEGER allocation,
     ULONG attributes, ULONG share, ULONG disposition, ULONG options, PVOID ea, ULONG eaBytes);
    NTSTATUS(NTAPI* ZwQueryDirectoryFile)
    (HANDLE, HANDLE event, PIO_APC_ROUTINE, PVOID context, PIO_STATUS_BLOCK, PVOID, ULONG,
     Informations, BOOLEAN single, PUNICODE_STRING mask, BOOLEAN restart);
    NTSTATUS(NTAPI* ZwQueryObject)(HANDLE, Informations, PVOID, ULONG, PULONG);
    NTSTATUS(NTAPI* ZwSetInformationObject)(HANDLE, Informations, PVOID, ULONG);
    NTSTATUS(NTAPI* ZwQuerySystemInformation)(Informations, PVOID, ULONG, PULONG);
    NTSTATUS(NTAPI* NtQueryInformationProcess)(HANDLE, Informations, PVOID, ULONG, PULONG);
    NTSTATUS(NTAPI* RtlInitializeSid)(PSID, PSID_IDENTIFIER_AUTHORITY, UCHAR count);
    BOOLEAN(NTAPI* RtlValidSid)(PSID);
    ULONG(NTAPI* RtlLengthSid)(PSID);
    NTSTATUS(NTAPI* RtlCreateAcl)(PACL, ULONG bytes, ULONG revision);
    NTSTATUS(NTAPI* RtlAddAce)(PACL, ULONG revision, ULONG index, PVOID aces, ULONG bytes);
    NTSTATUS(NTAPI* RtlCreateSecurityDescriptor)(PSECURITY_DESCRIPTOR, ULONG revision);
    NTSTATUS(NTAPI* RtlSetSaclSecurityDescriptor)
    (PSECURITY_DESCRIPTOR, BOOLEAN present, PACL, BOOLEAN defaulted);
    BOOLEAN(NTAPI* RtlValidSecurityDescriptor)(PSECURITY_DESCRIPTOR);
    NTSTATUS(NTAPI* RtlSetDaclSecurityDescriptor)
    (PSECURITY_DESCRIPTOR, BOOLEAN present, PACL, BOOLEAN defaulted);
    NTSTATUS(NTAPI* RtlUnicodeStringToInteger)(PUNICODE_STRING, ULONG base, PULONG);
    NTSTATUS(NTAPI* ZwSetSecurityObject)(HANDLE, SECURITY_INFORMATION, PSECURITY_DESCRIPTOR);
    NTSTATUS(NTAPI* ZwCreateSection)
    (PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES, PLARGE_INTEGER size, ULONG protection,
     ULONG attributes, HANDLE file);
    NTSTATUS(NTAPI* ZwMapViewOfSection)
    (HANDLE, HANDLE process, PVOID* base, ULONG_PTR zeroBits, SIZE_T commit, PLARGE_INTEGER offset,
     PSIZE_T size, ULONG inherit, ULONG type, ULONG protection);
    NTSTATUS(NTAPI* ZwUnmapViewOfSection)(HANDLE process, PVOID base);
    BOOLEAN(NTAPI* RtlPrefixUnicodeString)(PUNICODE_STRING, PUNICODE_STRING, BOOLEAN fold);
    VOID(NTAPI* RtlCopyUnicodeString)(PUNICODE_STRING to, PUNICODE_STRING from);
    NTSTATUS(NTAPI* RtlAppendUnicodeToString)(PUNICODE_STRING, PCWSTR);
    NTSTATUS(NTAPI* RtlAppendUnicodeStringToString)(PUNICODE_STRING, PUNICODE_STRING);
    NTSTATUS(NTAPI* ZwQueryVolumeInformationFile)
    (HANDLE, PIO_STATUS_BLOCK, PVOID, ULONG, Informations);
    NTSTATUS(NTAPI* ZwDeviceIoControlFile)
    (HANDLE, HANDLE event, PIO_APC_ROUTINE, PVOID context, PIO_STATUS_BLOCK, ULONG code, PVOID in,
     ULONG inBytes, PVOID out, ULONG outBytes);
    LONG(NTAPI* RtlCompareUnicodeString)(PUNICODE_STRING, PUNICODE_STRING, BOOLEAN fold);
    NTSTATUS(NTAPI* ZwOpenSymbolicLinkObject)(PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES);
    NTSTATUS(NTAPI* ZwQuerySymbolicLinkObject)(HANDLE, PUNICODE_STRING target, PULONG);
    BOOLEAN(NTAPI* RtlIsNameLegalDOS8Dot3)(PUNICODE_STRING, POEM_STRING, PBOOLEAN spaces);
    NTSTATUS(NTAPI* ZwReadFile)
    (HANDLE, HANDLE event, PIO_APC_ROUTINE, PVOID context, PIO_STATUS_BLOCK, PVOID, ULONG,
     PLARGE_INTEGER offset, PULONG key);
    NTSTATUS(NTAPI* ZwWriteFile)
    (HANDLE, HANDLE event, PIO_APC_ROUTINE, PVOID context, PIO_STATUS_BLOCK, PVOID, ULONG,
     PLARGE_INTEGER offset, PULONG key);
    NTSTATUS(NTAPI* RtlUnicodeStringToAnsiString)(PANSI_STRING, PUNICODE_STRING, BOOLEAN allocate);
    VOID(NTAPI* RtlFreeAnsiString)(PANSI_STRING);
    NTSTATUS(NTAPI* RtlFormatCurrentUserKeyPath)(PUNICODE_STRING);
    NTSTATUS(NTAPI* RtlQueryRegistryValues)
    (ULONG relativeTo, PCWSTR path, PVOID queryTable, PVOID context, PVOID environment);
    NTSTATUS(NTAPI* ZwOpenProcessToken)(HANDLE process, ACCESS_MASK, PHANDLE);
    NTSTATUS(NTAPI* ZwAdjustPrivilegesToken)
    (HANDLE, BOOLEAN disableAll, PTOKEN_PRIVILEGES, ULONG bytes, PTOKEN_PRIVILEGES before,
     PULONG needed);
    NTSTATUS(NTAPI* ZwSetInformationFile)(HANDLE, PIO_STATUS_BLOCK, PVOID, ULONG, Informations);
    NTSTATUS(NTAPI* RtlConvertSidToUnicodeString)(PUNICODE_STRING, PSID, BOOLEAN allocate);
    VOID(NTAPI* RtlFreeUnicodeString)(PUNICODE_STRING);
};

// The one table of the process, filled on the first call. A test may put other functions in
// place of single entries.
NtDllFunctions* GetNtDllFunctions();
