// SPDX-License-Identifier: MIT
#include <windows.h>

#include <sddl.h>

#include <memory>

#include "FS_Library_DLL/offline/OfflineSecurity.h"
#include "FS_Library_DLL/registry/NtDllFunctions.h"
#include "Shared/logging/Logger.h"
#include "W32Utils/UnImpersonator.h"
#include "include/FsError.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/FsOfflineRegistryImpl"

namespace offline {
namespace {

using Varnhold::Hob::Detail::kError;

constexpr NTSTATUS kEntryPointNotFound = static_cast<NTSTATUS>(0xC0000139);
constexpr NTSTATUS kNoToken = static_cast<NTSTATUS>(0xC000007C);
constexpr NTSTATUS kBufferOverflow = static_cast<NTSTATUS>(0x80000005);
constexpr NTSTATUS kBufferTooSmall = static_cast<NTSTATUS>(0xC0000023);
constexpr NTSTATUS kNoMemory = static_cast<NTSTATUS>(0xC0000017);
constexpr ACCESS_MASK kTokenAccess = 24;  // TOKEN_QUERY and TOKEN_QUERY_SOURCE
constexpr ULONG kTokenUser = 1;

struct LocalFreer {
    void operator()(void* memory) const { LocalFree(memory); }
};
using LocalMemory = std::unique_ptr<void, LocalFreer>;

// Opens the token that the thread acts with: its own while it impersonates, else the process's.
NTSTATUS OpenToken(const NtDllFunctions& ntDll, HANDLE* token) {
    if (ntDll.NtOpenThreadToken == nullptr || ntDll.NtOpenProcessToken == nullptr) {
        return kEntryPointNotFound;
    }
    const NTSTATUS status = ntDll.NtOpenThreadToken(GetCurrentThread(), kTokenAccess, TRUE, token);
    if (status != kNoToken) return status;
    return ntDll.NtOpenProcessToken(GetCurrentProcess(), kTokenAccess, token);
}

NTSTATUS QueryUser(const NtDllFunctions& ntDll, HANDLE token, LocalMemory* user) {
    if (ntDll.NtQueryInformationToken == nullptr) return kEntryPointNotFound;
    ULONG bytes = 0;
    NTSTATUS status = ntDll.NtQueryInformationToken(token, kTokenUser, nullptr, 0, &bytes);
    if (status == kBufferOverflow || status == kBufferTooSmall) {
        user->reset(LocalAlloc(LMEM_FIXED, bytes));
        if (*user == nullptr) return kNoMemory;
        status = ntDll.NtQueryInformationToken(token, kTokenUser, user->get(), bytes, &bytes);
    }
    return status;
}

NTSTATUS OpenAndQueryToken(const NtDllFunctions& ntDll, LocalMemory* user) {
    constexpr const char* kFunction = "w32utils::OpenAndQueryToken";
    HANDLE token = nullptr;
    NTSTATUS status = OpenToken(ntDll, &token);
    if (status < 0) {
        ZRFS_LOG(kError, kFunction, "Failed to obtain token [{}]", status);
        return status;
    }
    status = QueryUser(ntDll, token, user);
    CloseHandle(token);
    if (status < 0) ZRFS_LOG(kError, kFunction, "Failed to query token info [{}]", status);
    return status;
}

NTSTATUS SidToText(const NtDllFunctions& ntDll, PSID sid, std::wstring* text) {
    NTSTATUS status = kEntryPointNotFound;
    UNICODE_STRING converted = {};
    if (ntDll.RtlConvertSidToUnicodeString != nullptr && ntDll.RtlFreeUnicodeString != nullptr) {
        status = ntDll.RtlConvertSidToUnicodeString(&converted, sid, TRUE);
    }
    if (status < 0) {
        ZRFS_LOG(kError, "w32utils::AutoUnicodeString::FromSid",
                 "Failed to convert sid to std::string [{}]", status);
        return status;
    }
    text->assign(converted.Buffer, converted.Length / sizeof(wchar_t));
    ntDll.RtlFreeUnicodeString(&converted);
    return status;
}

// The string SID of whoever the thread acts for.
NTSTATUS CurrentUserSid(std::wstring* sid) {
    const NtDllFunctions& ntDll = *GetNtDllFunctions();
    LocalMemory user;
    const NTSTATUS status = OpenAndQueryToken(ntDll, &user);
    if (status < 0) return status;
    return SidToText(ntDll, static_cast<TOKEN_USER*>(user.get())->User.Sid, sid);
}

DWORD ReadHiveSecurity(const std::wstring& sid, std::vector<uint8_t>* descriptor) {
    HKEY key = nullptr;
    DWORD error = RegOpenKeyExW(HKEY_USERS, sid.c_str(), 0, KEY_READ, &key);
    if (error != ERROR_SUCCESS) return error;
    DWORD bytes = 0;
    error = RegGetKeySecurity(key, kUserHiveInformation, nullptr, &bytes);
    if (error == ERROR_SUCCESS || error == ERROR_INSUFFICIENT_BUFFER) {
        descriptor->resize(bytes);
        error = RegGetKeySecurity(key, kUserHiveInformation, descriptor->data(), &bytes);
    }
    RegCloseKey(key);
    return error;
}

}  // namespace

uint32_t DescriptorToText(const std::vector<uint8_t>& descriptor, uint32_t information,
                          platform::WString* text) {
    wchar_t* converted = nullptr;
    auto* source = const_cast<uint8_t*>(descriptor.data());
    if (!ConvertSecurityDescriptorToStringSecurityDescriptorW(source, SDDL_REVISION_1, information,
                                                              &converted, nullptr)) {
        return GetLastError();
    }
    const LocalMemory owner(converted);
    text->assign(converted);
    return ERROR_SUCCESS;
}

uint32_t TextToDescriptor(const platform::WChar* text, std::vector<uint8_t>* descriptor) {
    void* converted = nullptr;
    ULONG bytes = 0;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1, &converted,
                                                              &bytes)) {
        return GetLastError();
    }
    const LocalMemory owner(converted);
    const auto* start = static_cast<const uint8_t*>(converted);
    descriptor->assign(start, start + bytes);
    return ERROR_SUCCESS;
}

FBR_STATUS CopyUserHiveSecurity(const OfflineRegistryDll& dll, ORHKEY hive) {
    // The user is the one who is impersonated; the user's hive is read without impersonation.
    std::wstring sid;
    const NTSTATUS status = CurrentUserSid(&sid);
    if (status < 0) return FsError::ToFsStatus(static_cast<FBR_NTSTATUS>(status));
    const UnImpersonator asProcess;
    std::vector<uint8_t> descriptor;
    uint32_t error = asProcess.Error();
    if (error == ERROR_SUCCESS) error = ReadHiveSecurity(sid, &descriptor);
    if (error == ERROR_SUCCESS) {
        error = dll.ORSetKeySecurity(hive, kUserHiveInformation, descriptor.data());
    }
    return FsError::ToFsStatus(static_cast<FBR_WIN32ERROR>(error));
}

}  // namespace offline
