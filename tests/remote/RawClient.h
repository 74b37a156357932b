// SPDX-License-Identifier: MIT
// A client that sends bytes as they are.
#pragma once

#include "tests/remote/ScriptedServer.h"

namespace remote_test {

// "a.fbr" with method 4, a key "k" in it, one that goes with the store, and the answers.
inline const Bytes kOpen = Hex("00000000 0c000000 61002e006600620072000000 04000000"),
                   kOpened = Hex("01000000 00000000"),
                   kMake = Hex("08000000 0000000000000000 00000000 04000000 6b000000"),
                   kMakeVolatile = Hex("08000000 0000000000000000 01000000 04000000 6b000000"),
                   kMade = Hex("09000000 0100000000000000 00000000");

class RawClient {
  public:
    explicit RawClient(const platform::WString& pipe) : pipe_(Open(pipe)) {
        // On Windows the server may not have come round to the next instance yet.
        while (!platform::IsValid(pipe_) && platform::LastError() == platform::kErrorPipeBusy) {
            platform::SleepMilliseconds(1);
            pipe_ = Open(pipe);
        }
        EXPECT_TRUE(platform::IsValid(pipe_)) << platform::LastError();
    }
    ~RawClient() { platform::ClosePipe(pipe_); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    void Send(const Bytes& bytes) {
        platform::WritePipe(pipe_, bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    // The next packet whole, or nothing when the server has ended the connection.
    Bytes Receive() {
        Bytes packet(8);
        if (!Read(packet.data(), 8)) return {};
        const uint32_t total = packet[4] | packet[5] << 8 | packet[6] << 16 | packet[7] << 24;
        packet.resize(total);
        return Read(packet.data() + 8, total - 8) ? packet : Bytes();
    }
    Bytes Ask(const Bytes& payload) {
        Send(Packet(payload));
        return Receive();
    }

  private:
    static platform::Handle Open(const platform::WString& pipe) {
        return platform::OpenPipe(pipe.c_str(), platform::Disclosure::Impersonate);
    }
    bool Read(uint8_t* to, uint32_t size) {
        for (uint32_t done = 0; size > 0; to += done, size -= done)
            if (platform::ReadPipe(pipe_, to, size, &done) != 0 || done == 0) return false;
        return true;
    }
    platform::Handle pipe_;
};

}  // namespace remote_test
