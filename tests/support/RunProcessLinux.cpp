#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "tests/support/RunProcess.h"
#include "tests/support/TempDir.h"

namespace support {

std::filesystem::path ProgramNamed(const std::string& name) {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
}

ProcessResult RunProcess(const std::filesystem::path& program,
                         const std::vector<std::string>& arguments, const std::string& input) {
    const TempDir dir;
    WriteBytes(dir / "in", Bytes(input.begin(), input.end()));
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    const auto open = [&](int stream, const char* name, int flags) {
        posix_spawn_file_actions_addopen(&files, stream, (dir / name).c_str(), flags, 0600);
    };
    open(STDIN_FILENO, "in", O_RDONLY);
    open(STDOUT_FILENO, "out", O_WRONLY | O_CREAT);
    open(STDERR_FILENO, "err", O_WRONLY | O_CREAT);

    std::vector<std::string> words = arguments;
    words.insert(words.begin(), program.string());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    pid_t child = 0;
    const int error = posix_spawn(&child, program.c_str(), &files, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) throw std::runtime_error("cannot start " + program.string());

    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    const Bytes out = ReadBytes(dir / "out"), err = ReadBytes(dir / "err");
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, std::string(out.begin(), out.end()),
            std::string(err.begin(), err.end())};
}

}  // namespace support
