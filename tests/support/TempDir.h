// SPDX-License-Identifier: MIT
// A folder of a test's own, gone with the object.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/Clock.h"
#include "platform/Text.h"

namespace support {

using Bytes = std::vector<uint8_t>;

inline platform::WString Wide(const std::filesystem::path& path) {
#ifdef _WIN32
    return path.wstring();
#else
    return path.u16string();
#endif
}

class TempDir {
  public:
    TempDir() {
        static std::atomic<int> counter{0};
        path_ = std::filesystem::temp_directory_path() /
                ("zrfs-" + std::to_string(platform::ProcessId()) + "-" +
                 std::to_string(platform::PerformanceCounter()) + "-" + std::to_string(++counter));
        std::filesystem::create_directories(path_);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& Path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
    platform::WString File(const std::string& name) const { return Wide(path_ / name); }

  private:
    std::filesystem::path path_;
};

inline Bytes ReadBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
inline void WriteBytes(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

}  // namespace support
