// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

#include "tests/support/ChildProcess.h"
#include "tests/support/RunProcess.h"

namespace support {

std::filesystem::path ThisProgram() {
    return std::filesystem::read_symlink("/proc/self/exe");
}
std::filesystem::path ProgramNamed(const std::string& name) {
    return ThisProgram().parent_path() / name;
}

ChildProcess::ChildProcess(const std::filesystem::path& program,
                           const std::vector<std::string>& arguments,
                           const std::filesystem::path& streams) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    constexpr const char* kNames[] = {"in", "out", "err"};
    for (int stream = 0; stream < 3 && !streams.empty(); ++stream)
        posix_spawn_file_actions_addopen(&files, stream, (streams / kNames[stream]).c_str(),
                                         stream == 0 ? O_RDONLY : O_WRONLY | O_CREAT, 0600);
    std::vector<std::string> words = arguments;
    words.insert(words.begin(), program.string());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int error = posix_spawn(&pid, argv[0], &files, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) throw std::runtime_error("cannot start " + program.string());
    process_ = pid;
}

void ChildProcess::Kill() {
    if (process_ == 0) return;
    kill(static_cast<pid_t>(process_), SIGKILL);
    Wait();
}

int ChildProcess::Wait() {
    int status = 0;
    while (waitpid(static_cast<pid_t>(process_), &status, 0) < 0 && errno == EINTR) continue;
    process_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace support
