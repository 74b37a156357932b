// SPDX-License-Identifier: MIT
#include "tools/store/Session.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "tools/store/Status.h"

namespace fbr {
namespace {

constexpr uint32_t kLockForWriting = 1;
Session* g_session = nullptr;

}  // namespace

Session::Session() {
    g_session = this;
}

Session::~Session() {
    try {
        Close();
    } catch (const StoreError&) {  // Close was to be called
    }
    g_session = nullptr;
}

Session* Session::Current() {
    return g_session;
}

std::optional<StoreName> Session::Named(const std::string& path) const {
    const auto at = std::find_if(kept_.begin(), kept_.end(),
                                 [&](const Kept& one) { return one.name.path == path; });
    return at == kept_.end() ? std::nullopt : std::optional(at->name);
}

FBR_STORE Session::Find(const StoreName& name) const {
    const auto at = std::find_if(kept_.begin(), kept_.end(),
                                 [&](const Kept& one) { return IsSameStore(one.name, name); });
    return at == kept_.end() ? nullptr : at->handle;
}

void Session::Keep(const StoreName& name, FBR_STORE handle) {
    if (Find(name) == nullptr) kept_.push_back({name, handle});
}

FBR_STATUS Session::Lock(FBR_STORE handle, uint32_t type) {
    const auto at = std::find_if(kept_.begin(), kept_.end(),
                                 [&](const Kept& one) { return one.handle == handle; });
    if (at->lock == kLockForWriting || at->lock == type) return FSSTATUS_SUCCESS;
    at->lock = kLockForWriting;
    FBR_STATUS status = FBR_GetLockEx(kLockForWriting, handle);
    if (status == FSSTATUS_SUCCESS || type == kLockForWriting) {
        if (status != FSSTATUS_SUCCESS) at->lock = 0;
        return status;
    }
    at->lock = type;
    status = FBR_GetLockEx(type, handle);
    if (status != FSSTATUS_SUCCESS) at->lock = 0;
    return status;
}

void Session::Close() {
    StoreName failed;
    FBR_STATUS status = FSSTATUS_SUCCESS;
    for (; !kept_.empty(); kept_.pop_front()) {
        const Kept& one = kept_.front();
        if (one.lock != 0) FBR_ReleaseLockEx(one.lock, one.handle);
        const FBR_STATUS closed = FBR_DeInitialiseEx(one.handle);
        if (closed == FSSTATUS_SUCCESS || status != FSSTATUS_SUCCESS) continue;
        status = closed;
        failed = one.name;
    }
    if (status != FSSTATUS_SUCCESS)
        ThrowStatus("cannot close store " + failed.path, status, failed.method);
}

bool IsSameStore(const StoreName& a, const StoreName& b) {
    if (a.method != b.method) return false;
    if (a.path == b.path) return true;
    const auto first = FileOf(a), second = FileOf(b);
    std::error_code error;
    return first && second && std::filesystem::equivalent(*first, *second, error);
}

}  // namespace fbr
