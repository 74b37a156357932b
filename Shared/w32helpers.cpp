// SPDX-License-Identifier: MIT
#include "Shared/w32helpers.h"

#include "Shared/logging/Logger.h"
#include "Shared/security/AccessToken.h"
#include "Shared/services/ServicesCollection.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "Shared/w32helpers"

namespace w32utils {

using namespace Varnhold::Hob::Detail;

namespace {

std::shared_ptr<ProcessInterface> Process() {
    return Services::ServicesCollection::Instance()->Process();
}

// Opens the token of a process, or the calling thread's where that is refused.
CAccessToken OpenTokenOf(HANDLE process) {
    constexpr DWORD kAccess = TOKEN_QUERY | TOKEN_QUERY_SOURCE;
    CAccessToken token;
    HANDLE opened = nullptr;
    if (process != nullptr && Process()->OpenProcessToken(process, kAccess, &opened)) {
        token.Attach(opened);
    } else if (!token.OpenThreadToken(kAccess)) {
        const DWORD error = ::GetLastError();
        ZRFS_LOG(kError, "w32utils::SessionId", "Unable to OpenThreadToken(), error=[{}]", error);
    }
    return token;
}

}  // namespace

DWORD SessionId(DWORD process, HANDLE token) {
    DWORD session = kNoSession;
    if (::ProcessIdToSessionId(process, &session)) return session;
    const DWORD error = ::GetLastError();
    if (error == ERROR_ACCESS_DENIED) return SessionIdByToken(process, token);
    ZRFS_LOG(kError, "w32utils::SessionId", "ProcessIdToSessionId failed [{}]", error);
    return kNoSession;
}

DWORD SessionIdByToken(DWORD process, HANDLE token) {
    constexpr const char* kFunction = "w32utils::SessionId";
    ZRFS_LOG(kInformation, kFunction,
             "ERROR_ACCESS_DENIED - falling back to GetTokenInformation()");
    if (token != nullptr) return SessionIdFromToken(token);
    HANDLE opened = Process()->OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, process);
    if (opened == nullptr) {
        const DWORD error = ::GetLastError();
        ZRFS_LOG(kError, kFunction, "Error, Unable to OpenProcess(), error=[{}]", error);
    }
    const CAccessToken found = OpenTokenOf(opened);
    if (opened != nullptr) Process()->CloseHandle(opened);
    return found.IsOpen() ? SessionIdFromToken(found.Get()) : kNoSession;
}

DWORD SessionIdFromToken(HANDLE token) {
    DWORD session = kNoSession;
    DWORD bytes = 0;
    if (::GetTokenInformation(token, TokenSessionId, &session, sizeof session, &bytes)) {
        return session;
    }
    const DWORD error = ::GetLastError();
    ZRFS_LOG(kError, "w32utils::SessionIdFromToken", "GetTokenInformation() failed [{}]", error);
    return kNoSession;
}

ProcessPrivilege::ProcessPrivilege(const wchar_t* name, bool wanted)
    : name_(name), wanted_(wanted) {
    if ((IsProcessPrivilegeEnabled(name) != FALSE) == wanted) return;
    error_ = SetState(name_, wanted);
    restore_ = error_ == 0;
}

ProcessPrivilege::~ProcessPrivilege() {
    if (restore_) SetState(name_, !wanted_);
}

BOOL ProcessPrivilege::IsProcessPrivilegeEnabled(const wchar_t* name) {
    LUID wanted;
    if (!::LookupPrivilegeValueW(nullptr, name, &wanted)) return FALSE;
    bool enabled = false;
    GetProcessPrivileges([&](const LUID_AND_ATTRIBUTES& held) {
        if (held.Luid.LowPart != wanted.LowPart || held.Luid.HighPart != wanted.HighPart) {
            return true;
        }
        enabled = (held.Attributes & SE_PRIVILEGE_ENABLED) != 0;
        return false;
    });
    return enabled;
}

DWORD ProcessPrivilege::GetProcessPrivileges(const Visitor& visitor) {
    constexpr const char* kFunction = "w32utils::ProcessPrivilege::GetProcessPrivileges";
    CAccessToken token;
    if (!token.OpenProcessToken(TOKEN_QUERY)) {
        const DWORD error = ::GetLastError();
        ZRFS_LOG(kError, kFunction, "OpenProcessToken [{}]", error);
        return error;
    }
    TokenInformation information;
    if (!information.Query(token.Get(), TokenPrivileges)) {
        const DWORD error = ::GetLastError();
        ZRFS_LOG(kError, kFunction, "GetTokenInformation [{}]", error);
        return error;
    }
    const auto& privileges = information.As<TOKEN_PRIVILEGES>();
    for (DWORD i = 0; i < privileges.PrivilegeCount; ++i) {
        if (!visitor(privileges.Privileges[i])) break;
    }
    return ERROR_SUCCESS;
}

DWORD ProcessPrivilege::SetState(const std::wstring& name, bool on) {
    CAccessToken token;
    TOKEN_PRIVILEGES change{};
    change.PrivilegeCount = 1;
    change.Privileges[0].Attributes = on ? SE_PRIVILEGE_ENABLED : 0;
    if (!token.OpenProcessToken(TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES) ||
        !::LookupPrivilegeValueW(nullptr, name.c_str(), &change.Privileges[0].Luid)) {
        return ::GetLastError();
    }
    // The call succeeds for a privilege that the token does not hold, and tells so by the last
    // error alone.
    ::SetLastError(ERROR_SUCCESS);
    ::AdjustTokenPrivileges(token.Get(), FALSE, &change, sizeof change, nullptr, nullptr);
    return ::GetLastError();
}

}  // namespace w32utils
