// SPDX-License-Identifier: MIT
// Serves stores to clients over a named pipe, each connection on a thread of its own.
#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <optional>
#include <thread>

#include "platform/Pipe.h"
#include "server/Conversation.h"

namespace server {

struct ServerOptions {
    platform::WString name;
    std::optional<std::filesystem::path> root;  // see PathGuard
    platform::WString cluster = {};             // see there
    bool anyUser = false;                       // Linux: let in other users too
    // A client that has begun a packet, or is being sent one, may pause this long.
    uint32_t stallMilliseconds = 30000;
};

// Made, listening, run and stopped: Run returns after Stop, when every connection has ended and
// its store is closed; for a lock that somebody else holds it waits no longer than a moment, and
// the volatile keys of that store stay. Stop may be called from any thread and from a signal or
// console handler.
//
// A connection ends, and the others go on, when its client vanishes, stalls within a packet, or
// sends a packet that is too large or not one of the protocol. Logs through the scoped logging.
class StoreServer {
  public:
    // Throws std::runtime_error when the root is no folder.
    explicit StoreServer(ServerOptions options);
    ~StoreServer();
    StoreServer(const StoreServer&) = delete;
    StoreServer& operator=(const StoreServer&) = delete;

    // 0, or a Win32 error: kErrorPipeBusy or kErrorAccessDenied when the name is taken.
    platform::Error Listen();
    void Run();
    void Stop() noexcept;
    // The full name of the pipe, or the path of the socket.
    std::string Where() const { return platform::PipePath(options_.name.c_str()); }

  private:
    struct Worker {
        std::thread thread;
        std::atomic<bool> done{false};
    };
    void StartWorker(std::unique_ptr<platform::PipeConnection> connection);
    void JoinWorkers(bool all);

    ServerOptions options_;
    SessionRules rules_;
    std::unique_ptr<platform::StopSignal> stop_;
    std::unique_ptr<platform::PipeListener> listener_;
    std::list<Worker> workers_;
};

}  // namespace server
