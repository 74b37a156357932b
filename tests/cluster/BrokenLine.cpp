// SPDX-License-Identifier: MIT
#include "tests/cluster/BrokenLine.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <vector>

namespace cluster_test {
namespace {

constexpr std::chrono::milliseconds kLook{2};

sockaddr_in Loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

}  // namespace

BrokenLine::BrokenLine(const std::string& member)
    : memberPort_(std::stoi(member.substr(member.rfind(':') + 1))) {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof address;
    if (bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        listen(listener_, 16) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("no port for a broken line");
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { Run(); });
}

BrokenLine::~BrokenLine() {
    ends_ = true;
    thread_.join();
    close(listener_);
}

void BrokenLine::Run() {
    std::vector<std::thread> lines;
    while (!ends_) {
        pollfd waiting{listener_, POLLIN, 0};
        if (poll(&waiting, 1, 50) <= 0) continue;
        const int client = accept(listener_, nullptr, nullptr);
        if (client >= 0) lines.emplace_back([this, client] { Serve(client); });
    }
    for (std::thread& line : lines) line.join();
}

void BrokenLine::Deliver() {
    const int before = delivered_;
    delivers_ = true;
    while (delivered_ == before) std::this_thread::sleep_for(kLook);
}

// False when the line is at its end.
bool BrokenLine::Pass(int from, int to, bool isRequest) {
    char bytes[65536];
    const ssize_t size = recv(from, bytes, sizeof bytes, 0);
    if (size <= 0) return false;
    requests_ += isRequest ? 1 : 0;
    const bool isHeld = isRequest && holds_.exchange(false);
    if (isHeld) {
        delivers_ = false;
        while (!delivers_ && !ends_) std::this_thread::sleep_for(kLook);
    }
    if (!isRequest && loses_.exchange(false)) return ++lost_, false;
    send(to, bytes, static_cast<size_t>(size), MSG_NOSIGNAL);
    if (!isHeld) return true;
    recv(to, bytes, sizeof bytes, 0);  // it is done
    ++delivered_;
    return false;
}

// Until one of both ends, or an answer is lost.
void BrokenLine::Serve(int client) {
    const int member = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(memberPort_);
    pollfd both[] = {{client, POLLIN, 0}, {member, POLLIN, 0}};
    bool isOpen = connect(member, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    while (isOpen && !ends_) {
        if (poll(both, 2, 50) <= 0) continue;
        for (int i = 0; i < 2 && isOpen; ++i)
            if (both[i].revents != 0) isOpen = Pass(both[i].fd, both[1 - i].fd, i == 0);
    }
    close(client);
    close(member);
}

}  // namespace cluster_test
