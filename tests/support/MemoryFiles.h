// SPDX-License-Identifier: MIT
// Files whose bytes are in memory, for tests that make thousands of containers.
#pragma once

#include <filesystem>
#include <map>
#include <memory>

#include "tests/support/FileWrapper.h"
#include "tests/support/TempDir.h"

namespace support {

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

    platform::PageFile* Wrap(platform::PageFile* opened, const platform::WChar* path) override;

  private:
    class File;

    struct Entry {
        std::shared_ptr<Bytes> bytes;
        platform::FileIdentity identity;  // of the shell, once it was opened
    };
    // The entry of a file just opened, which may have had another name before.
    Entry& EntryOf(const platform::WString& path, const platform::FileIdentity& identity);

    std::map<platform::WString, Entry> files_;
    uint64_t work_ = 0;
};

}  // namespace support
