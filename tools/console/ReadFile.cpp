// SPDX-License-Identifier: MIT
#include "tools/console/ReadFile.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <system_error>

namespace fbr {
namespace {

// A file that has the bytes expected of it takes no memory beyond them.
std::string ReadAll(std::istream& in, uint64_t expected) {
    std::string bytes;
    size_t done = 0;
    size_t room = std::max<uint64_t>(expected + 1, 64 * 1024);
    do {
        bytes.resize(room);
        in.read(bytes.data() + done, static_cast<std::streamsize>(room - done));
        done += static_cast<size_t>(in.gcount());
        room = done * 2;
    } while (in);
    bytes.resize(done);
    return bytes;
}

std::string Utf8(const std::filesystem::path& file) {
    const std::u8string text = file.u8string();
    return {text.begin(), text.end()};
}

[[noreturn]] void Fail(const std::filesystem::path& file, const char* why) {
    throw std::runtime_error("cannot read file " + Utf8(file) + why);
}

}  // namespace

std::string ReadFile(const std::filesystem::path& file) {
    std::error_code error;
    if (std::filesystem::is_directory(file, error)) Fail(file, ": it is a folder");
    if (!std::filesystem::exists(file, error)) Fail(file, ": there is no such file");
    std::ifstream in(file, std::ios::binary);
    if (!in) Fail(file, ": it may not be read");
    const uintmax_t size = std::filesystem::file_size(file, error);
    std::string bytes = ReadAll(in, error ? 0 : size);
    if (in.bad()) Fail(file, ": its disk fails");
    return bytes;
}

std::string ReadInput(const std::string& file) {
    if (file == "-") return ReadAll(std::cin, 0);
    return ReadFile(std::filesystem::path(std::u8string(file.begin(), file.end())));
}

}  // namespace fbr
