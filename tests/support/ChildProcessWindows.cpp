#include <windows.h>

#include <stdexcept>

#include "tests/support/ChildProcess.h"

namespace support {

ChildProcess::ChildProcess(const std::string& role, const std::vector<std::string>& arguments) {
    char program[MAX_PATH];
    GetModuleFileNameA(nullptr, program, MAX_PATH);
    std::string line = "\"" + std::string(program) + "\" --child " + role;
    for (const std::string& argument : arguments) line += " \"" + argument + "\"";
    STARTUPINFOA startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION made{};
    if (!CreateProcessA(program, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &made)) {
        throw std::runtime_error("cannot start a child process");
    }
    CloseHandle(made.hThread);
    process_ = reinterpret_cast<intptr_t>(made.hProcess);
}

ChildProcess::~ChildProcess() {
    Kill();
}

void ChildProcess::Kill() {
    if (process_ == 0) return;
    TerminateProcess(reinterpret_cast<HANDLE>(process_), 255);
    Wait();
}

int ChildProcess::Wait() {
    const auto handle = reinterpret_cast<HANDLE>(process_);
    DWORD code = 0;
    WaitForSingleObject(handle, INFINITE);
    GetExitCodeProcess(handle, &code);
    CloseHandle(handle);
    process_ = 0;
    return static_cast<int>(code);
}

}  // namespace support
