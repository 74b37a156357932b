// SPDX-License-Identifier: MIT
// Runs a program to its end, and takes what it wrote.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace support {

struct ProcessResult {
    int status = -1;  // the exit status; -1 when the program did not end by itself
    std::string out, err;
};

// The program that runs, and one of this build, which lies in its folder.
std::filesystem::path ThisProgram();
std::filesystem::path ProgramNamed(const std::string& name);

// `arguments` are UTF-8 and reach the program as they are; `input` is its standard input. Throws
// std::runtime_error when the program cannot be started.
ProcessResult RunProcess(const std::filesystem::path& program,
                         const std::vector<std::string>& arguments, const std::string& input = "");

}  // namespace support
