// SPDX-License-Identifier: MIT
// A file, or standard input, as a whole.
#pragma once

#include <filesystem>
#include <string>

namespace fbr {

// The bytes of a file, or of standard input for "-". `file` is UTF-8.
std::string ReadInput(const std::string& file);
std::string ReadFile(const std::filesystem::path& file);

}  // namespace fbr
