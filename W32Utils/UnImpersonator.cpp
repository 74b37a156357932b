// SPDX-License-Identifier: MIT
#include "W32Utils/UnImpersonator.h"

#include "Shared/logging/Logger.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "Shared/UnImpersonator"

using namespace Varnhold::Hob::Detail;

UnImpersonator::UnImpersonator() {
    constexpr const char* kFunction = "UnImpersonator::UnImpersonator";
    LogScope scope(ZRFS_LOG_FILE, kFunction, __LINE__);
    error_ = saver_.Error();
    if (SavedToken() == nullptr || ::RevertToSelf()) return;
    error_ = ::GetLastError();
    ZRFS_LOG(kError, kFunction, "Failed to stop impersonating [{}]", error_);
}
