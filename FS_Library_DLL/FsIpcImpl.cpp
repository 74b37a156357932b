#include "FS_Library_DLL/FsIpcImpl.h"

#include "FS_Library_DLL/Backends.h"
#include "Shared/logging/Logger.h"

#define ZRFS_LOG_FILE "FS_Library_DLL/FsIpcImpl"

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
