// A second process that runs a part of a test: the test program itself, started again with the
// name of a role.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace support {

// A role that a child can play; its result is the exit code of the child, 0 to 255. Define one at
// namespace scope:
//
//     const support::ChildRole kHold("hold", [](const std::vector<std::string>& arguments) {...});
class ChildRole {
  public:
    using Body = int (*)(const std::vector<std::string>& arguments);
    ChildRole(const char* name, Body body);
};

class ChildProcess {
  public:
    // Starts the role. Arguments are plain ASCII without quotes.
    ChildProcess(const std::string& role, const std::vector<std::string>& arguments);
    // Kills a child that still runs.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Ends the child at once, without any clean-up of its own, and waits until it is gone.
    void Kill();
    // Waits for the end; the exit code.
    int Wait();

  private:
    intptr_t process_ = 0;
};

// For the main function of test programs: true when the program was started to play a role, which
// has then been played with the result in *exitCode.
bool PlayChildRole(int argc, char** argv, int* exitCode);

// Looks every few milliseconds until `condition` holds; false when it does not within 20 seconds.
inline bool Eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace support
