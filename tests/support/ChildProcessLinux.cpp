#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <stdexcept>

#include "tests/support/ChildProcess.h"

namespace support {

ChildProcess::ChildProcess(const std::string& role, const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {"/proc/self/exe", "--child", role};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
        throw std::runtime_error("cannot start a child process");
    }
    process_ = pid;
}

ChildProcess::~ChildProcess() {
    Kill();
}

void ChildProcess::Kill() {
    if (process_ == 0) return;
    kill(static_cast<pid_t>(process_), SIGKILL);
    Wait();
}

int ChildProcess::Wait() {
    int status = 0;
    waitpid(static_cast<pid_t>(process_), &status, 0);
    process_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace support
