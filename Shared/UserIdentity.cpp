// SPDX-License-Identifier: MIT
#include "Shared/UserIdentity.h"

#include "Shared/logging/Logger.h"
#include "Shared/w32helpers.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "Shared/UserIdentity"

using namespace Varnhold::Hob::Detail;
using w32utils::CAccessToken;

namespace {
constexpr const char* kAttach = "CUserIdentity::Attach";
}

CUserIdentity::CUserIdentity(DWORD session, HANDLE token) {
    LogScope scope(ZRFS_LOG_FILE, "CUserIdentity::CUserIdentity", __LINE__);
    Attach(session, token);
}

CUserIdentity::~CUserIdentity() {
    LogScope scope(ZRFS_LOG_FILE, "CUserIdentity::~CUserIdentity", __LINE__);
    token_.Close();
}

void CUserIdentity::Attach(DWORD session, HANDLE token) {
    HANDLE given = CAccessToken::IsHandle(token) ? token : nullptr;
    session_ = session == kCurrentSession || session == kCurrentSessionToo
                   ? w32utils::SessionId(::GetCurrentProcessId(), given)
                   : session;
    token_.Attach(given);
    if (!token_.IsOpen()) HoldCallersToken();
    if (!token_.GetUser(user_)) {
        const DWORD error = ::GetLastError();
        ZRFS_LOG(kError, kAttach, "CAccessToken::GetUser failed [{}]", error);
    }
    if (!token_.GetPrimaryGroup(group_)) {
        const DWORD error = ::GetLastError();
        ZRFS_LOG(kError, kAttach, "CAccessToken::GetPrimaryGroup failed [{}]", error);
    }
}

void CUserIdentity::HoldCallersToken() {
    constexpr DWORD kAccess = TOKEN_DUPLICATE | TOKEN_IMPERSONATE | TOKEN_QUERY;
    if (token_.OpenThreadToken(kAccess)) return;
    if (::GetLastError() == ERROR_NO_TOKEN && token_.OpenProcessToken(kAccess)) return;
    const DWORD error = ::GetLastError();
    ZRFS_LOG(kError, kAttach, "Getlast Error=[{}]", error);
}
