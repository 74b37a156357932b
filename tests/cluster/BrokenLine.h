// SPDX-License-Identifier: MIT
// A way to a member that passes requests on and, when it is told to, loses an answer, or brings a
// request late.
#pragma once

#include <atomic>
#include <string>
#include <thread>

namespace cluster_test {

class BrokenLine {
  public:
    explicit BrokenLine(const std::string& member);
    ~BrokenLine();
    BrokenLine(const BrokenLine&) = delete;
    BrokenLine& operator=(const BrokenLine&) = delete;

    std::string Endpoint() const { return "127.0.0.1:" + std::to_string(port_); }
    // The next answer does not come.
    void LoseOne() { loses_ = true; }
    int Lost() const { return lost_; }
    // Small requests that went this way.
    int Requests() const { return requests_; }
    // The next request does not arrive before Deliver, whoever waits for the answer.
    void HoldOne() { holds_ = true; }
    // Returns when it was done.
    void Deliver();

  private:
    void Run();
    void Serve(int client);
    bool Pass(int from, int to, bool isRequest);

    const int memberPort_;
    int listener_ = -1, port_ = 0;
    std::atomic<bool> loses_ = false, holds_ = false, delivers_ = false, ends_ = false;
    std::atomic<int> lost_ = 0, delivered_ = 0, requests_ = 0;
    std::thread thread_;
};

}  // namespace cluster_test
