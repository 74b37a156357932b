// SPDX-License-Identifier: MIT
#include "tests/support/ChildProcess.h"

#include <cstring>
#include <map>

#include "tests/support/RunProcess.h"
#include "tests/support/TempDir.h"

namespace support {
namespace {

std::map<std::string, ChildRole::Body>& Roles() {
    static std::map<std::string, ChildRole::Body> roles;
    return roles;
}

std::vector<std::string> RoleWords(const std::string& role, std::vector<std::string> words) {
    words.insert(words.begin(), {"--child", role});
    return words;
}

std::string TextOf(const std::filesystem::path& path) {
    const Bytes bytes = ReadBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

}  // namespace

ChildRole::ChildRole(const char* name, Body body) {
    Roles().emplace(name, std::move(body));
}

int ChildRole::Play(const std::vector<std::string>& words) {
    return Roles().at(words[0])({words.begin() + 1, words.end()});
}

ChildProcess::ChildProcess(const std::string& role, const std::vector<std::string>& arguments)
    : ChildProcess(ThisProgram(), RoleWords(role, arguments), {}) {}

bool PlayChildRole(int argc, char** argv, int* exitCode) {
    if (argc < 3 || std::strcmp(argv[1], "--child") != 0) return false;
    *exitCode = ChildRole::Play({argv + 2, argv + argc});
    return true;
}

ProcessResult RunProcess(const std::filesystem::path& program,
                         const std::vector<std::string>& arguments, const std::string& input) {
    const TempDir dir;
    WriteBytes(dir / "in", Bytes(input.begin(), input.end()));
    const int status = ChildProcess(program, arguments, dir.Path()).Wait();
    return {status, TextOf(dir / "out"), TextOf(dir / "err")};
}

}  // namespace support
