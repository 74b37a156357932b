// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/remote/IocpBlockingPipeClient.h"

#include "Shared/ipc/Wire.h"
#include "Shared/logging/Logger.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/IocpBlockingPipeClient"

namespace w32utils {

using platform::Error;
namespace log = Varnhold::Hob::Detail;

namespace {

constexpr int kMissingLimit = 50;         // tries after which a missing pipe is given up
constexpr uint32_t kRetryPause = 100;     // milliseconds
constexpr size_t kUsualReplySize = 4096;  // most replies fit and cause no allocation

}  // namespace

void IocpPipeClient::Close() {
    if (platform::IsValid(handle_)) platform::ClosePipe(handle_);
    handle_ = nullptr;
}

Error IocpPipeClient::Connect() {
    constexpr const char* kName = "w32utils::IocpPipeClient::Connect";
    Close();
    for (int missing = 0;;) {
        handle_ = platform::OpenPipe(pipeName_.c_str(), disclosure_);
        if (IsConnected()) return platform::kErrorSuccess;
        const Error error = platform::LastError();
        const bool notFound = error == platform::kErrorFileNotFound;
        if ((!notFound && error != platform::kErrorPipeBusy) ||
            (notFound && ++missing > kMissingLimit + 1)) {
            ZRFS_LOG(log::kError, kName, "Couldn't connect to pipe server err[{}]", error);
            platform::SetLastError(error);
            return error;
        }
        ZRFS_LOG(log::kWarning, kName, "err[{}] consider increasing number of pipe instances",
                 error);
        platform::SleepMilliseconds(kRetryPause);
    }
}

Error IocpPipeClient::WritePacket(const void* payload, uint32_t size) {
    constexpr const char* kName = "w32utils::IocpPipeClient::WritePacket";
    const log::LogScope scope(ZRFS_LOG_FILE, kName, __LINE__);
    uint8_t header[ipc::kPacketHeaderSize] = {static_cast<uint8_t>(ipc::kPacketMagic)};
    const uint32_t total = size + ipc::kPacketHeaderSize;
    for (int i = 0; i < 4; ++i) header[4 + i] = static_cast<uint8_t>(total >> 8 * i);
    Error error = platform::WritePipe(handle_, header, sizeof header);
    if (error != 0) {
        ZRFS_LOG(log::kError, kName, "Writing header failed [{}]", error);
        return error;
    }
    error = platform::WritePipe(handle_, payload, size);
    if (error != 0) ZRFS_LOG(log::kError, kName, "Writing payload failed [{}]", error);
    return error;
}

Error IocpPipeClient::ReadPacket(std::vector<uint8_t>* out) {
    constexpr const char* kName = "w32utils::IocpPipeClient::ReadPacket";
    const log::LogScope scope(ZRFS_LOG_FILE, kName, __LINE__);
    out->reserve(kUsualReplySize);
    out->resize(ipc::kPacketHeaderSize);
    uint32_t done = 0;
    Error error = platform::ReadPipe(handle_, out->data(), ipc::kPacketHeaderSize, &done);
    if (error != 0) {
        ZRFS_LOG(log::kError, kName, "Reading header failed [{}]", error);
        return error;
    }
    if (done != ipc::kPacketHeaderSize) {
        ZRFS_LOG(log::kError, kName, "Packet size is invalid - Size: [{}]l]", done);
        return kErrorInvalidData;
    }
    ipc::WireReader header(*out);
    header.U32();
    const uint32_t total = header.U32();
    const uint32_t size = total > ipc::kPacketHeaderSize ? total - ipc::kPacketHeaderSize : 0;
    ZRFS_LOG(log::kInformation, kName, "Read payload of size [{}]", size);
    if (size == 0) {
        ZRFS_LOG(log::kError, kName, "Zero payload size");
        return kErrorInvalidData;
    }
    if (total > ipc::kLargestPacket) {
        ZRFS_LOG(log::kError, kName, "Payload size is past the limit - Size: [{}]", size);
        return kErrorInvalidData;
    }
    out->resize(size);
    error = platform::ReadPipe(handle_, out->data(), size, &done);
    if (error != 0) {
        ZRFS_LOG(log::kError, kName, "Reading payload failed [{}]", error);
        return error;
    }
    if (done != size) {
        ZRFS_LOG(log::kError, kName, "Payload size is invalid - Size: [{}]l]", done);
        return kErrorInvalidData;
    }
    return platform::kErrorSuccess;
}

}  // namespace w32utils
