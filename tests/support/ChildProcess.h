// SPDX-License-Identifier: MIT
// Programs that run beside a test, and the test program itself, started again with the name of a
// role to run a part of the test.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
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
    using Body = std::function<int(const std::vector<std::string>& arguments)>;
    ChildRole(const char* name, Body body);
    // Plays one in this process: its name, and what it is told.
    static int Play(const std::vector<std::string>& words);
};

class ChildProcess {
  public:
    // Starts a program with arguments in UTF-8, which reach it as they are; with `streams`, a
    // folder, its standard streams are the files "in", "out" and "err" there. Throws
    // std::runtime_error when it cannot.
    ChildProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                 const std::filesystem::path& streams);
    // Starts the role.
    ChildProcess(const std::string& role, const std::vector<std::string>& arguments);
    // Kills a child that still runs.
    ~ChildProcess() { Kill(); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Ends the child at once, without any clean-up of its own, and waits until it is gone.
    void Kill();
    // Waits for the end; the exit code, -1 when it did not end by itself.
    int Wait();
    // What the system knows it by.
    intptr_t Id() const { return process_; }

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
