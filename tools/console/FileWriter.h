// SPDX-License-Identifier: MIT
// Writing a file as a whole: who looks finds the old one or the new one.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <system_error>

namespace fbr {

// A regular file, whether it is there or not, is written under a name of its own in its folder,
// which nobody else has or can lay there first, and takes its place in Finish; until then, and for
// ever after a failure, the old one stays. Links are followed. The new one has the permissions of
// the old one. A device or a pipe is written straight away.
//
// Failures are std::system_error.
class FileWriter {
  public:
    explicit FileWriter(const std::filesystem::path& path);
    ~FileWriter();
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    void Write(const char* bytes, size_t size);
    // Makes it so long, before the first byte: tells whether it may be.
    void Reserve(uint64_t size);
    // Call it once, after the last byte.
    void Finish();

  private:
    struct System;
    std::unique_ptr<System> system_;
};

// What to do about a failure, "; make room": what the system's own words leave open.
const char* WhatToDo(const std::error_code& code, const std::filesystem::path& file);

}  // namespace fbr
