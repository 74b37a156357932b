// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/offline/ORHandleProxy.h"

#include <utility>

#include "Shared/logging/Logger.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/FsOfflineRegistryImpl"

using platform::WString;
using Varnhold::Hob::Detail::kError;

namespace {

WString JoinPath(const WString& parent, const WString& relative) {
    const bool needsSeparator =
        !relative.empty() && relative.front() != '\\' && parent != WTEXT("\\");
    return needsSeparator ? parent + WTEXT("\\") + relative : parent + relative;
}

WString LastComponent(const WString& path) {
    const size_t last = path.find_last_not_of('\\');
    if (last == WString::npos) return {};
    const size_t before = path.find_last_of('\\', last);
    return path.substr(before + 1, last - before);
}

}  // namespace

void HandleWrapper::Close() {
    if (handle == nullptr) return;
    const uint32_t error = isHive ? dll->ORCloseHive(handle) : dll->ORCloseKey(handle);
    handle = nullptr;
    if (error == 0) return;
    ZRFS_LOG(kError, "HandleWrapper::Close",
             isHive ? "Error closing hive [{}]" : "Error closing key [{}]", error);
}

ORHandleProxy::ORHandleProxy(const OfflineRegistryDll* dll, ORHKEY hive)
    : wrapper(std::make_shared<HandleWrapper>(dll, hive, true)), fullPath(WTEXT("\\")) {}

ORHandleProxy::ORHandleProxy(const ORHandleProxy& parent, ORHKEY key, const WString& relative)
    : wrapper(std::make_shared<HandleWrapper>(parent.wrapper->dll, key, false)) {
    SetPath(JoinPath(parent.fullPath, relative));
}

void ORHandleProxy::SetPath(WString path) {
    name = LastComponent(path);
    fullPath = std::move(path);
}
