// SPDX-License-Identifier: MIT
#include "tests/cluster/RunningCluster.h"

#include <arpa/inet.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace cluster_test {
namespace {

// All are found before one is used.
std::vector<int> FreePorts(size_t count) {
    std::vector<int> sockets, ports;
    for (size_t i = 0; i < count; ++i) {
        sockets.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (bind(sockets.back(), reinterpret_cast<sockaddr*>(&address), size) != 0 ||
            getsockname(sockets.back(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
            throw std::runtime_error("no free port");
        ports.push_back(ntohs(address.sin_port));
    }
    for (const int one : sockets) close(one);
    return ports;
}

std::string Url(int port) {
    return "http://127.0.0.1:" + std::to_string(port);
}

}  // namespace

RunningCluster::RunningCluster(size_t members, std::filesystem::path certificates,
                               std::string option)
    : certificates_(std::move(certificates)), option_(std::move(option)) {
    const std::vector<int> ports = FreePorts(members * 2);
    for (size_t i = 0; i < members; ++i) members_.push_back({ports[2 * i], ports[2 * i + 1]});
    for (size_t i = 0; i < members; ++i) Start(i);
    AwaitAll();
}

std::shared_ptr<const cluster::EtcdSettings> RunningCluster::Settings(
    std::vector<std::string> endpoints) const {
    auto settings = std::make_shared<cluster::EtcdSettings>();
    settings->endpoints = std::move(endpoints);
    if (certificates_.empty()) return settings;
    settings->caCertificate = (certificates_ / "ca.pem").string();
    settings->certificate = (certificates_ / "own.pem").string();
    settings->key = (certificates_ / "own.key").string();
    return settings;
}

std::vector<std::string> RunningCluster::Arguments(size_t member) const {
    const Member& own = members_[member];
    const std::string name = "m" + std::to_string(member);
    std::string all;
    for (size_t i = 0; i < members_.size(); ++i)
        all += (i == 0 ? "m" : ",m") + std::to_string(i) + "=" + Url(members_[i].peers);
    const std::string clients = (certificates_.empty() ? "http" : "https") +
                                std::string("://127.0.0.1:") + std::to_string(own.clients);
    // It ends with the process that started it, however that ends.
    std::vector<std::string> arguments = {"--pdeathsig",
                                          "KILL",
                                          "etcd",
                                          "--name",
                                          name,
                                          "--data-dir",
                                          (folder_ / name).string(),
                                          "--listen-client-urls",
                                          clients,
                                          "--advertise-client-urls",
                                          clients,
                                          "--listen-peer-urls",
                                          Url(own.peers),
                                          "--initial-advertise-peer-urls",
                                          Url(own.peers),
                                          "--initial-cluster",
                                          all,
                                          "--initial-cluster-state",
                                          "new",
                                          "--log-level",
                                          "error"};
    if (!option_.empty()) arguments.push_back(option_);
    if (certificates_.empty()) return arguments;
    for (const char* option : {"trusted-ca-file=ca.pem", "cert-file=own.pem", "key-file=own.key"}) {
        const std::string text = option;
        const size_t file = text.find('=') + 1;
        arguments.push_back("--" + text.substr(0, file) +
                            (certificates_ / text.substr(file)).string());
    }
    arguments.emplace_back("--client-cert-auth");
    return arguments;
}

void RunningCluster::Start(size_t member) {
    const auto streams = folder_ / ("streams" + std::to_string(member));
    std::filesystem::create_directories(streams);
    std::ofstream(streams / "in").flush();
    members_[member].process =
        std::make_unique<support::ChildProcess>("/usr/bin/setpriv", Arguments(member), streams);
}

void RunningCluster::Halt(size_t member, bool halts) {
    kill(static_cast<pid_t>(members_[member].process->Id()), halts ? SIGSTOP : SIGCONT);
}

std::vector<std::string> RunningCluster::Endpoints() const {
    std::vector<std::string> all;
    for (const Member& member : members_)
        all.push_back("127.0.0.1:" + std::to_string(member.clients));
    return all;
}

platform::WString RunningCluster::Path(const std::string& prefix) const {
    std::string path;
    for (const std::string& endpoint : Endpoints()) path += (path.empty() ? "" : ",") + endpoint;
    return platform::FromUtf8(path + "/" + prefix);
}

void RunningCluster::AwaitAll() const {
    for (const std::string& endpoint : Endpoints()) {
        cluster::EtcdApi api(Settings({endpoint}));
        api.SetPatience(cluster::Milliseconds(30000));
        cluster::RangeReply reply;
        if (api.Range({{"ready"}}, &reply) != cluster::Outcome::Answered)
            throw std::runtime_error("the cluster does not come up");
    }
}

size_t RunningCluster::Leader() const {
    for (size_t i = 0; i < members_.size(); ++i) {
        cluster::EtcdHttp http(Settings({Endpoints()[i]}));
        std::string reply;
        if (http.Post("/v3/maintenance/status", "{}", cluster::Milliseconds(5000), &reply) !=
            cluster::Outcome::Answered)
            continue;
        const auto status = nlohmann::json::parse(reply);
        if (status["leader"] == status["header"]["member_id"]) return i;
    }
    throw std::runtime_error("the cluster has no leader");
}

Records::Records(const RunningCluster& cluster) : api_(cluster.Settings(cluster.Endpoints())) {}

std::vector<cluster::KeyValue> Records::Below(const std::string& prefix) {
    cluster::RangeReply reply;
    EXPECT_EQ(api_.Range({cluster::AllBelow(prefix)}, &reply), cluster::Outcome::Answered);
    return reply.found;
}

void Records::Do(std::vector<cluster::Operation> operations) {
    cluster::TransactionReply reply;
    EXPECT_EQ(api_.Do({{}, std::move(operations), {}}, &reply), cluster::Outcome::Answered);
}

}  // namespace cluster_test
