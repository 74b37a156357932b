// SPDX-License-Identifier: MIT
// SHA-256, for telling contents apart.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace fbr {

class Sha256 {
  public:
    void Add(const void* bytes, size_t size);
    // In hexadecimal. Call it once, after the last byte.
    std::string Done();

  private:
    void Block(const uint8_t* block);

    std::array<uint32_t, 8> state_ = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                      0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    std::array<uint8_t, 64> block_ = {};
    uint64_t size_ = 0;
};

}  // namespace fbr
