// SPDX-License-Identifier: MIT
// Files that record what is written, so that a test can have each state that a crash could leave.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/support/FileWrapper.h"
#include "tests/support/TempDir.h"

namespace support {

// One change of one file, in the order in which all files together were changed.
struct FileChange {
    enum class Kind { Write, Cut, Flush };
    Kind kind;
    platform::WString path;
    uint64_t offset = 0;  // of a write; the length of a cut
    Bytes bytes;          // of a write
};

// While it lives, every file opened through the seam is recorded. Changes that failed are left
// out, but for the bytes of a write that were written all the same.
class RecordingFile final : public FileWrapper {
  public:
    const std::vector<FileChange>& Changes() const { return changes_; }
    // Forgets the changes; the files' present bytes are where Image starts from now on.
    void Restart();

    // The bytes of the file at `path` after the first `count` changes. When the last of these is a
    // write to it, only the first `torn` bytes of it are there.
    Bytes Image(const platform::WString& path, size_t count, size_t torn = SIZE_MAX) const;

    platform::PageFile* Wrap(platform::PageFile* opened, const platform::WChar* path) override;

  private:
    class File;

    std::map<platform::WString, Bytes> start_;
    std::vector<FileChange> changes_;
};

}  // namespace support
