// SPDX-License-Identifier: MIT
// A file, or standard input, as a whole or part by part.
#pragma once

#include <cstdint>
#include <filesystem>
#include <istream>
#include <memory>
#include <string>

#include "tools/console/TempFolder.h"
#include "tools/format/ByteSource.h"

namespace fbr {

// The bytes of a file, or of standard input for "-". `file` is UTF-8.
std::string ReadInput(const std::string& file);

// The same, part by part. What can be read only once, as a pipe, is put into a temporary file
// first. A Read ends with an interrupt that a guard keeps.
class FileSource : public ByteSource {
  public:
    explicit FileSource(const std::string& file);
    explicit FileSource(const std::filesystem::path& file);
    FileSource(FileSource&&) = default;
    FileSource& operator=(FileSource&&) = default;

    size_t Read(char* out, size_t room) override;
    void Rewind() override;

    uint64_t Size() const { return size_; }
    // How much was read since the begin.
    uint64_t Position() const { return position_; }

  private:
    void Keep(std::istream& once);

    std::unique_ptr<TempFolder> folder_;
    std::unique_ptr<std::istream> in_;
    std::string name_;
    uint64_t size_ = 0, position_ = 0;
};

}  // namespace fbr
