// SPDX-License-Identifier: MIT
// A server that answers with bytes written out beforehand and remembers what it was sent.
#pragma once

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/remote/RunningServer.h"
#include "tests/support/ScriptText.h"

namespace remote_test {

using Bytes = std::vector<uint8_t>;

// Bytes from hexadecimal text; blanks are passed over.
inline Bytes Hex(std::string text) {
    std::erase(text, ' ');
    return support::DataOf(text);
}

class ScriptedServer {
  public:
    // Answers the first connection's requests with `packets` in turn, written as they are, then
    // closes the connection; `connections` of those follow one another.
    explicit ScriptedServer(platform::WString name, std::vector<Bytes> packets, int connections = 1)
        : packets_(std::move(packets)), stop_(platform::StopSignal::Create()) {
        listener_ = platform::PipeListener::Listen(name.c_str(), false, stop_.get());
        EXPECT_NE(listener_, nullptr) << platform::LastError();
        thread_ = std::thread([this, connections] {
            for (int i = 0; i < connections && listener_ != nullptr; ++i) ServeOne();
            // A client that comes again must not wait for somebody who will not answer.
            listener_.reset();
        });
    }
    ~ScriptedServer() {
        stop_->Signal();
        thread_.join();
    }

    // The payloads received, packet headers checked and taken off.
    std::vector<Bytes> Requests() {
        const std::lock_guard guard(lock_);
        return requests_;
    }

  private:
    void ServeOne() {
        const auto connection = listener_->Accept();
        if (connection == nullptr) return;
        for (const Bytes& packet : packets_) {
            Bytes header(8);
            if (connection->Read(header.data(), 8, platform::kForever) != 0) return;
            EXPECT_EQ(Bytes(header.begin(), header.begin() + 4), Hex("2a000000"));
            const uint32_t total = header[4] | header[5] << 8 | header[6] << 16 | header[7] << 24;
            Bytes payload(total - 8);
            if (connection->Read(payload.data(), total - 8, platform::kForever) != 0) return;
            {
                const std::lock_guard guard(lock_);
                requests_.push_back(payload);
            }
            if (!packet.empty())
                connection->Write(packet.data(), static_cast<uint32_t>(packet.size()),
                                  platform::kForever);
        }
    }

    std::vector<Bytes> packets_;
    std::unique_ptr<platform::StopSignal> stop_;
    std::unique_ptr<platform::PipeListener> listener_;
    std::mutex lock_;
    std::vector<Bytes> requests_;
    std::thread thread_;
};

// A packet around a payload.
inline Bytes Packet(const Bytes& payload) {
    const auto total = static_cast<uint32_t>(payload.size() + 8);
    Bytes packet = {42, 0, 0, 0};
    for (int i = 0; i < 4; ++i) packet.push_back(static_cast<uint8_t>(total >> 8 * i));
    packet.insert(packet.end(), payload.begin(), payload.end());
    return packet;
}

}  // namespace remote_test
