// SPDX-License-Identifier: MIT
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

#include "tools/console/Spawn.h"

namespace fbr {
namespace {

constexpr int kBySignal = 128;  // and the number of the signal, as shells have it

std::string Quoted(const std::string& word) {
    std::string out = "'";
    for (const char c : word) {
        if (c == '\'')
            out += "'\\''";
        else
            out += c;
    }
    return out + '\'';
}

}  // namespace

int RunAgain(const std::vector<std::string>& words, const std::string& pipe) {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) return 1;
    std::string line = Quoted(program.string());
    for (const std::string& word : words) line += ' ' + Quoted(word);
    if (!pipe.empty()) line += " | " + pipe;
    const int status = std::system(line.c_str());
    if (status == -1) return 1;
    return WIFSIGNALED(status) ? kBySignal + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace fbr
