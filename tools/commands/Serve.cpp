// SPDX-License-Identifier: MIT
// fbr serve: stores for clients that cannot open them themselves.
#include <fmt/format.h>

#include <memory>
#include <mutex>

#include "Shared/logging/Logger.h"
#include "server/StoreServer.h"
#include "tools/commands/Cli.h"
#include "tools/console/Console.h"
#include "tools/console/TellError.h"
#include "tools/format/Reason.h"
#include "tools/format/Text.h"

namespace fbr {
namespace {

namespace log = Varnhold::Hob::Detail;

// The server that an interrupt ends.
server::StoreServer* g_running = nullptr;

void StopRunning() {
    if (g_running != nullptr) g_running->Stop();
}

void LogToStandardError(int level) {
    log::Logger::Instance().RemoveSinks();  // that of the other commands
    log::Logger::Instance().AddSink(
        level, [level](int severity) { return severity <= level; },
        [](const log::LogRecord& record) {
            static std::mutex lock;
            const std::lock_guard guard(lock);
            TellError(record.message);
        });
}

struct ServeArguments {
    std::string name;
    std::optional<std::string> root, cluster;
    bool anyUser = false;
    bool verbose = false;
};

// The store's path, as clients name it behind our name.
std::string ClusterNamed(std::string place) {
    constexpr std::string_view kBegin = "etcd://";
    if (!place.starts_with(kBegin) || place.size() == kBegin.size())
        throw UsageError("expected etcd://HOST:PORT,.../PREFIX after --cluster, not \"" + place +
                         '"');
    return place.substr(kBegin.size());
}

void Serve(const ServeArguments& arguments) {
    if (arguments.name.empty()) throw UsageError("expected a name for the pipe, not \"\"");
    server::ServerOptions options;
    options.name = Wide(arguments.name);
    options.anyUser = arguments.anyUser;
    if (arguments.root) options.root = std::filesystem::path(Wide(*arguments.root));
    if (arguments.cluster) options.cluster = Wide(ClusterNamed(*arguments.cluster));
    LogToStandardError(arguments.verbose ? log::kInformation : log::kWarning);
    server::StoreServer server(std::move(options));
    const platform::Error error = server.Listen();
    if (error != 0)
        throw std::runtime_error(
            fmt::format("cannot listen on {}: {}", server.Where(), ReasonOf(error)));
    g_running = &server;
    OnInterrupt(&StopRunning);
    HearOfSessionEnd();
    TellError("listening on " + server.Where());
    server.Run();
    OnInterrupt(nullptr);
    g_running = nullptr;
    log::Logger::Instance().RemoveSinks();
    TellError("stopped, every store is closed");
}

}  // namespace

void AddServeCommand(Cli& cli) {
    const auto arguments = std::make_shared<ServeArguments>();
    cli.Add("serve", "Serve stores to clients over a pipe until Ctrl-C")
        .Example("fbr serve stores")
        .Example("fbr serve /run/stores.sock --root /srv/stores")
        .Text("NAME", arguments->name, Need::kRequired,
              "the pipe's name; on Linux a path is taken as it is")
        .Text("--root DIR", arguments->root, Need::kOptional,
              "let clients open files below DIR only")
        .Text("--cluster STORE", arguments->cluster, Need::kOptional,
              "let clients open etcd://HOST:PORT,.../PREFIX and stores below it, too")
        .Flag("--any-user", arguments->anyUser, "Linux: let in other users too")
        .Flag("--verbose", arguments->verbose, "tell of clients that come and go")
        .Does([arguments] { Serve(*arguments); });
}

}  // namespace fbr
