// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/remote/FsIpcImpl.h"

#include "FS_Library_DLL/Backends.h"
#include "Shared/logging/Logger.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/FsIpcImpl"

namespace {

// A server opens the files and keys of these in the client's name; what another does for its
// method it has to do in its own.
platform::Disclosure DisclosureFor(FBR_METHOD method) {
    switch (static_cast<uint32_t>(method)) {
        case FS_VR_METHOD_NATIVE:
        case FS_VR_METHOD_REMOTE_CONTAINER:
        case FS_VR_METHOD_HIVE:
        case FS_VR_METHOD_OFFLINE:
            return platform::Disclosure::Impersonate;
        default:
            return platform::Disclosure::Identify;
    }
}

}  // namespace

FsIpcImpl::FsIpcImpl(FBR_METHOD method, const WString& server)
    : method_(method), client_(server, DisclosureFor(method)) {}

FBR_STATUS FsIpcImpl::FBR_InitialiseEx(const WChar* path) {
    const FBR_STATUS status = client_.FBR_InitialiseEx(path, method_);
    ZRFS_LOG(Varnhold::Hob::Detail::kInformation, "FsIpcImpl::FBR_InitialiseEx",
             "[{}] for [{}] type [{}]", static_cast<uint32_t>(status),
             path == nullptr ? "(null)" : platform::ToUtf8(path), static_cast<uint32_t>(method_));
    return status;
}

std::unique_ptr<IFSInterface> CreateIpcBackend(FBR_METHOD method, const WString& server) {
    return std::make_unique<FsIpcImpl>(method, server);
}
