// SPDX-License-Identifier: MIT
// The system's own calls on one file, the yardstick of the benchmark.
#pragma once

#include <cstdint>
#include <filesystem>

namespace bench {

class BareFile {
  public:
    // Makes or empties the file. Throws std::runtime_error when it cannot.
    explicit BareFile(const std::filesystem::path& path);
    ~BareFile();
    BareFile(const BareFile&) = delete;
    BareFile& operator=(const BareFile&) = delete;

    // Position and transfer. False when it comes up short.
    bool Write(uint64_t offset, const void* buffer, uint32_t bytes);
    bool Read(uint64_t offset, void* buffer, uint32_t bytes);

  private:
    void* handle_ = nullptr;
    int descriptor_ = -1;
};

}  // namespace bench
