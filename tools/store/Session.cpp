// SPDX-License-Identifier: MIT
#include "tools/store/Session.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace fbr {
namespace {

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

std::shared_ptr<zrfs::Store> Session::Find(const StoreName& name) const {
    const auto at = std::find_if(kept_.begin(), kept_.end(),
                                 [&](const Kept& one) { return IsSameStore(one.name, name); });
    return at == kept_.end() ? nullptr : at->store;
}

void Session::Keep(const StoreName& name, std::shared_ptr<zrfs::Store> store) {
    if (Find(name) == nullptr) kept_.emplace_back(name, std::move(store));
}

void Session::Lock(const zrfs::Store& store, FBR_LOCK_TYPE type) {
    const auto at = std::find_if(kept_.begin(), kept_.end(),
                                 [&](const Kept& one) { return one.store.get() == &store; });
    if (at->writes || (at->lock && type == FBR_LOCK_READ)) return;
    const auto take = [&](FBR_LOCK_TYPE lock) {
        at->lock.emplace(store, lock);
        at->writes = lock == FBR_LOCK_WRITE;
    };
    if (type == FBR_LOCK_WRITE) return take(type);
    try {
        take(FBR_LOCK_WRITE);
    } catch (const std::system_error&) {
        take(type);
    }
}

void Session::Close() {
    StoreName failed;
    FBR_STATUS status = FSSTATUS_SUCCESS;
    for (; !kept_.empty(); kept_.pop_front()) {
        Kept& one = kept_.front();
        const auto saving = WhileItCloses(one.name);
        one.lock.reset();
        try {
            one.store->close();
        } catch (const std::system_error& error) {
            if (status != FSSTATUS_SUCCESS) continue;
            status = zrfs::status_of(error.code());
            failed = one.name;
        }
    }
    if (status != FSSTATUS_SUCCESS)
        ThrowFailedAt(failed, "cannot close store " + failed.Shown(), status);
}

bool IsSameStore(const StoreName& a, const StoreName& b) {
    if (a.method != b.method) return false;
    if (a.path == b.path) return true;
    const auto first = FileOf(a), second = FileOf(b);
    std::error_code error;
    return first && second && std::filesystem::equivalent(*first, *second, error);
}

}  // namespace fbr
