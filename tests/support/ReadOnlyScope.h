// SPDX-License-Identifier: MIT
// A file that can be read and not written, also when the tests run with all rights.
#pragma once

#include <filesystem>

namespace support {

// While it lives, opening the file at `path` for writing fails on this thread; opening it for
// reading succeeds. Handles that are open already are not affected. Nothing else may have it open
// for writing.
class ReadOnlyScope {
  public:
    explicit ReadOnlyScope(const std::filesystem::path& path);
    ~ReadOnlyScope();
    ReadOnlyScope(const ReadOnlyScope&) = delete;
    ReadOnlyScope& operator=(const ReadOnlyScope&) = delete;

  private:
    std::filesystem::path path_;
    void* handle_ = nullptr;
};

}  // namespace support
