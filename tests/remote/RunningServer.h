// SPDX-License-Identifier: MIT
// A server of this process, listening while the object lives.
#pragma once

#include <gtest/gtest.h>

#include <thread>

#include "platform/Clock.h"
#include "server/StoreServer.h"

namespace remote_test {

inline platform::WString UniquePipe(const std::string& purpose) {
    static std::atomic<int> counter{0};
    return platform::FromUtf8("zrfs-test-" + purpose + "-" + std::to_string(platform::ProcessId()) +
                              "-" + std::to_string(++counter));
}

class RunningServer {
  public:
    explicit RunningServer(server::ServerOptions options = {}) {
        if (options.name.empty()) options.name = UniquePipe("server");
        pipe_ = options.name;
        server_ = std::make_unique<server::StoreServer>(std::move(options));
        const platform::Error error = server_->Listen();
        EXPECT_EQ(error, platform::kErrorSuccess);
        if (error == 0) thread_ = std::thread([this] { server_->Run(); });
    }
    // Returns when every connection has ended.
    ~RunningServer() {
        server_->Stop();
        if (thread_.joinable()) thread_.join();
    }
    const platform::WString& Pipe() const { return pipe_; }

  private:
    platform::WString pipe_;
    std::unique_ptr<server::StoreServer> server_;
    std::thread thread_;
};

}  // namespace remote_test
