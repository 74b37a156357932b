// SPDX-License-Identifier: MIT
#include "Shared/Impersonator.h"

#include "Shared/logging/Logger.h"
#include "Shared/security/AccessToken.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "Shared/Impersonator"

using namespace Varnhold::Hob::Detail;

Impersonator::Impersonator(HANDLE token) {
    w32utils::CAccessToken own;
    if (own.OpenThreadToken(TOKEN_QUERY)) {
        state_ = State::Already;
    } else if (::ImpersonateLoggedOnUser(token)) {
        state_ = State::Impersonating;
    } else {
        error_ = ::GetLastError();
    }
}

Impersonator::~Impersonator() {
    if (state_ != State::Impersonating || ::RevertToSelf()) return;
    const DWORD error = ::GetLastError();
    ZRFS_LOG(kError, "Impersonator::~Impersonator", "Failed to revert to self. Error [{}]", error);
    ::SetThreadToken(nullptr, nullptr);  // the other way to the same end
}
