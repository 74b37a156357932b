// SPDX-License-Identifier: MIT
#include "tools/console/FileWriter.h"

namespace fbr {

const char* WhatToDo(const std::error_code& code, const std::filesystem::path& file) {
    if (code == std::errc::no_space_on_device) return "; make room, or write to another disk";
    if (code == std::errc::file_too_large)
        return "; raise the limit for the size of files, or take another disk";
    if (code == std::errc::permission_denied || code == std::errc::operation_not_permitted ||
        code == std::errc::read_only_file_system)
        return "; ask its owner for the right, or write elsewhere";
    std::error_code error;
    const auto folder = std::filesystem::absolute(file, error).parent_path();
    if (!std::filesystem::exists(folder, error) && !error)
        return "; its folder is missing: make it first";
    if (code == std::errc::is_a_directory) return "; name a file in it";
    return "";
}

}  // namespace fbr
