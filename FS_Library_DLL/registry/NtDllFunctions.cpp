// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/registry/NtDllFunctions.h"

#include <cstring>
#include <iterator>

namespace {

// In the order of the table.
constexpr const char* kNames[] = {
    "ZwQueryAttributesFile",
    "ZwQueryInformationFile",
    "ZwDeleteKey",
    "ZwCreateKey",
    "NtOpenThreadToken",
    "NtOpenProcessToken",
    "NtQueryInformationToken",
    "RtlSubAuthoritySid",
    "RtlSubAuthorityCountSid",
    "ZwClose",
    "ZwOpenKey",
    "ZwQueryKey",
    "ZwQueryValueKey",
    "ZwEnumerateKey",
    "ZwRenameKey",
    "ZwSetValueKey",
    "ZwDeleteValueKey",
    "ZwEnumerateValueKey",
    "RtlInitUnicodeString",
    "ZwDuplicateObject",
    "ZwOpenFile",
    "ZwCreateFile",
    "ZwQueryDirectoryFile",
    "ZwQueryObject",
    "ZwSetInformationObject",
    "ZwQuerySystemInformation",
    "NtQueryInformationProcess",
    "RtlInitializeSid",
    "RtlValidSid",
    "RtlLengthSid",
    "RtlCreateAcl",
    "RtlAddAce",
    "RtlCreateSecurityDescriptor",
    "RtlSetSaclSecurityDescriptor",
    "RtlValidSecurityDescriptor",
    "RtlSetDaclSecurityDescriptor",
    "RtlUnicodeStringToInteger",
    "ZwSetSecurityObject",
    "ZwCreateSection",
    "ZwMapViewOfSection",
    "ZwUnmapViewOfSection",
    "RtlPrefixUnicodeString",
    "RtlCopyUnicodeString",
    "RtlAppendUnicodeToString",
    "RtlAppendUnicodeStringToString",
    "ZwQueryVolumeInformationFile",
    "ZwDeviceIoControlFile",
    "RtlCompareUnicodeString",
    "ZwOpenSymbolicLinkObject",
    "ZwQuerySymbolicLinkObject",
    "RtlIsNameLegalDOS8Dot3",
    "ZwReadFile",
    "ZwWriteFile",
    "RtlUnicodeStringToAnsiString",
    "RtlFreeAnsiString",
    "RtlFormatCurrentUserKeyPath",
    "RtlQueryRegistryValues",
    "ZwOpenProcessToken",
    "ZwAdjustPrivilegesToken",
    "ZwSetInformationFile",
    "RtlConvertSidToUnicodeString",
    "RtlFreeUnicodeString",
};
static_assert(std::size(kNames) == 62);
static_assert(sizeof(NtDllFunctions) == std::size(kNames) * sizeof(FARPROC));

NtDllFunctions Load() {
    NtDllFunctions table{};
    HMODULE module = ::LoadLibraryW(L"NtDll.dll");
    if (module == nullptr) return table;
    FARPROC entries[std::size(kNames)];
    for (size_t i = 0; i < std::size(kNames); ++i) entries[i] = ::GetProcAddress(module, kNames[i]);
    std::memcpy(&table, entries, sizeof table);
    // The module stays mapped in every process, and so the pointers stay good.
    ::FreeLibrary(module);
    return table;
}

}  // namespace

NtDllFunctions* GetNtDllFunctions() {
    static NtDllFunctions table = Load();
    return &table;
}
