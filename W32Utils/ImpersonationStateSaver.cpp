// SPDX-License-Identifier: MIT
#include "W32Utils/ImpersonationStateSaver.h"

#include "Shared/logging/Logger.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "W32Utils/ImpersonationStateSaver"

namespace w32utils {

using namespace Varnhold::Hob::Detail;

ImpersonationStateSaver::ImpersonationStateSaver() {
    constexpr const char* kFunction = "w32utils::ImpersonationStateSaver::ImpersonationStateSaver";
    if (token_.OpenThreadToken(TOKEN_IMPERSONATE | TOKEN_QUERY)) {
        ZRFS_LOG(kInformation, kFunction, "Got a thread token");
    } else if (const DWORD error = ::GetLastError(); error != ERROR_NO_TOKEN) {
        ZRFS_LOG(kError, kFunction, "Failed to get thread token. Error [{}].", error);
        error_ = error;
    }
}

ImpersonationStateSaver::~ImpersonationStateSaver() {
    if (error_ != 0 || ::SetThreadToken(nullptr, token_.Get())) return;
    const DWORD error = ::GetLastError();
    if (token_.IsOpen()) ::ImpersonateAnonymousToken(::GetCurrentThread());
    ZRFS_LOG(kError, "w32utils::ImpersonationStateSaver::~ImpersonationStateSaver",
             "Failed to set thread token. Error [{}].", error);
}

}  // namespace w32utils
