// SPDX-License-Identifier: MIT
// Bytes that are read part by part, so that a file of any size takes little memory.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace fbr {

class ByteSource {
  public:
    virtual ~ByteSource() = default;
    // Puts the next bytes to `out`, at most `room`; how many, which is 0 at the end alone.
    virtual size_t Read(char* out, size_t room) = 0;
    // The next Read begins at the first byte again.
    virtual void Rewind() = 0;
};

// Bytes in memory, which outlive it.
class ByteView : public ByteSource {
  public:
    explicit ByteView(std::string_view bytes) : bytes_(bytes) {}
    size_t Read(char* out, size_t room) override {
        const size_t size = std::min(room, bytes_.size() - position_);
        if (size != 0) std::memcpy(out, bytes_.data() + position_, size);
        position_ += size;
        return size;
    }
    void Rewind() override { position_ = 0; }

  private:
    const std::string_view bytes_;
    size_t position_ = 0;
};

}  // namespace fbr
