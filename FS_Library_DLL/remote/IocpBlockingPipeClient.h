// SPDX-License-Identifier: MIT
// Length-framed packets over one named pipe, as the client.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/Pipe.h"

namespace w32utils {

// All calls block. Used from one thread at a time.
//
// A packet is a u32 of 42, a u32 with the total size (payload and these 8 bytes), and the
// payload. The first number of a packet received is not looked at.
class IocpPipeClient {
  public:
    // `pipeName` is the name without its prefix.
    IocpPipeClient(platform::WString pipeName, platform::Disclosure disclosure)
        : pipeName_(std::move(pipeName)), disclosure_(disclosure) {}
    ~IocpPipeClient() { Close(); }
    IocpPipeClient(const IocpPipeClient&) = delete;
    IocpPipeClient& operator=(const IocpPipeClient&) = delete;

    bool IsConnected() const { return platform::IsValid(handle_); }
    // Waits for a server that is not there for about five seconds, for a busy one without limit.
    // 0, or a Win32 error.
    platform::Error Connect();
    void Close();

    // 0, or a Win32 error.
    platform::Error WritePacket(const void* payload, uint32_t size);
    // Reads a packet's payload into `out`. 0, a Win32 error, or kErrorInvalidData for a packet
    // with no payload, one cut short, or one past the largest size the protocol allows.
    platform::Error ReadPacket(std::vector<uint8_t>* out);

  private:
    platform::Handle handle_ = nullptr;
    platform::WString pipeName_;
    const platform::Disclosure disclosure_;
};

inline constexpr platform::Error kErrorInvalidData = 13;

}  // namespace w32utils
