// SPDX-License-Identifier: MIT
// Files whose bytes are in memory, for tests that make thousands of containers.
#pragma once

#include <filesystem>
#include <map>
#include <memory>

#include "tests/support/FileWrapper.h"
#include "tests/support/TempDir.h"

namespace support {

// One change of one file, in the order in which all files together were changed.
struct FileChange {
    platform::WString path;
    bool cut = false;
    uint64_t offset = 0;  // of what was written; the length of a cut
    Bytes bytes = {};
};

// Puts `count` bytes in their place in a file's bytes, which grow as far as need be.
void Overwrite(Bytes* image, uint64_t offset, const void* bytes, size_t count);

// While it lives, files opened through the seam keep their bytes here. What lies on the disk is an
// empty shell that says which files exist.
class MemoryFiles final : public FileWrapper {
  public:
    void Put(const std::filesystem::path& path, Bytes bytes);
    void Remove(const std::filesystem::path& path);
    // Empty for a file that does not exist.
    Bytes Get(const std::filesystem::path& path) const;
    // Transfers since the making or the last ResetWork: a measure of the work done.
    uint64_t Work() const { return work_; }
    void ResetWork() { work_ = 0; }

    // Notes what changes while it lives, so that a test can have each state that a crash could
    // leave. One at a time.
    class Recording {
      public:
        explicit Recording(MemoryFiles& files);
        ~Recording() { files_.recording_ = nullptr; }
        Recording(const Recording&) = delete;
        Recording& operator=(const Recording&) = delete;

        const std::vector<FileChange>& Changes() const { return changes_; }
        // The bytes of the file at `path` after the first `count` changes. When the last of these
        // is a write to it, only the first `torn` bytes of it are there.
        Bytes Image(const std::filesystem::path& path, size_t count, size_t torn = SIZE_MAX) const;

      private:
        friend class MemoryFiles;
        MemoryFiles& files_;
        std::map<platform::WString, Bytes> start_;
        std::vector<FileChange> changes_;
    };

    platform::PageFile* Wrap(platform::PageFile* opened, const platform::WChar* path) override;

  private:
    class File;
    void Note(FileChange change);

    struct Entry {
        std::shared_ptr<Bytes> bytes;
        platform::FileIdentity identity;  // of the shell, once it was opened
    };
    // The entry of a file just opened, which may have had another name before.
    Entry& EntryOf(const platform::WString& path, const platform::FileIdentity& identity);

    std::map<platform::WString, Entry> files_;
    uint64_t work_ = 0;
    Recording* recording_ = nullptr;
};

}  // namespace support
