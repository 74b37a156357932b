// SPDX-License-Identifier: MIT
#include "server/StoreServer.h"

#include <system_error>

#include "Shared/logging/Logger.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "server/StoreServer"

namespace server {

using platform::Error;
using platform::PipeConnection;
namespace log = Varnhold::Hob::Detail;

namespace {

constexpr uint32_t kPauseAfterFailure = 100;  // milliseconds

}  // namespace

StoreServer::StoreServer(ServerOptions options)
    : options_(std::move(options)),
      rules_(PathGuard(options_.root, options_.cluster)),
      stop_(platform::StopSignal::Create()) {}

StoreServer::~StoreServer() {
    Stop();
    JoinWorkers(true);
}

Error StoreServer::Listen() {
    if (stop_ == nullptr) return platform::LastError();
    listener_ =
        platform::PipeListener::Listen(options_.name.c_str(), options_.anyUser, stop_.get());
    return listener_ != nullptr ? platform::kErrorSuccess : platform::LastError();
}

void StoreServer::Stop() noexcept {
    rules_.stopping = true;
    if (stop_ != nullptr) stop_->Signal();
}

void StoreServer::Run() {
    for (;;) {
        auto connection = listener_->Accept();
        const Error error = platform::LastError();
        JoinWorkers(false);
        if (connection != nullptr) {
            StartWorker(std::move(connection));
            continue;
        }
        if (error == platform::kErrorOperationAborted) break;
        // Out of descriptors or memory, perhaps: clients that go will make room.
        ZRFS_LOG(log::kError, "StoreServer::Run", "Taking a client failed [{}]", error);
        platform::SleepMilliseconds(kPauseAfterFailure);
    }
    JoinWorkers(true);
    listener_.reset();
}

void StoreServer::StartWorker(std::unique_ptr<PipeConnection> connection) {
    Worker& worker = workers_.emplace_back();
    try {
        worker.thread = std::thread([this, &worker, held = std::move(connection)]() mutable {
            ServeConnection(held.get(), &rules_, options_.stallMilliseconds);
            held.reset();
            worker.done = true;
        });
    } catch (const std::system_error& error) {
        ZRFS_LOG(log::kError, "StoreServer::StartWorker", "No thread for a client: {}",
                 error.what());
        workers_.pop_back();
    }
}

void StoreServer::JoinWorkers(bool all) {
    for (auto worker = workers_.begin(); worker != workers_.end();) {
        if (!all && !worker->done) {
            ++worker;
            continue;
        }
        worker->thread.join();
        worker = workers_.erase(worker);
    }
}

}  // namespace server
