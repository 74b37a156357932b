#include "tools/store/Foreign.h"

#include <fstream>

namespace fbr {
namespace {

constexpr size_t kMagicBytes = 4;
constexpr std::string_view kHiveMagic = "regf";

std::string FirstBytes(const std::filesystem::path& file) {
    std::string bytes(kMagicBytes, '\0');
    std::ifstream in(file, std::ios::binary);
    in.read(bytes.data(), kMagicBytes);
    bytes.resize(static_cast<size_t>(in.gcount()));
    return bytes;
}

}  // namespace

std::string WhatStandsThere(const StoreName& name) {
    const auto file = FileOf(name);
    std::error_code error;
    if (!file || !std::filesystem::exists(*file, error)) return "";
    if (std::filesystem::is_directory(*file, error)) return "; it is a folder";
    if (!std::filesystem::is_regular_file(*file, error)) return "; it is no regular file";
    if (!std::ifstream(*file, std::ios::binary)) return "; it cannot be read";
    const bool isHive = FirstBytes(*file) == kHiveMagic;
    if (name.method == FS_VR_METHOD_TARN)
        return isHive ? "; it is a hive: open it with --method offline"
                      : "; it is no container, or one that is damaged: fbr info tells more";
    const bool wantsHive = name.method == FS_VR_METHOD_OFFLINE || name.method == FS_VR_METHOD_HIVE;
    return wantsHive && !isHive ? "; it is no hive" : "";
}

}  // namespace fbr
