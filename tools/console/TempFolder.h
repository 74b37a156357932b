// SPDX-License-Identifier: MIT
// A folder for files that go when the command ends.
#pragma once

#include <filesystem>
#include <string>

namespace fbr {

// Below the system's folder for temporary files; nobody else may look into it. Throws
// std::runtime_error, which says where it was to be and what names another place.
class TempFolder {
  public:
    TempFolder();
    ~TempFolder() { Remove(); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& Path() const { return path_; }
    // Throws away what may go now: where a file that is open may, all of it.
    void Remove() const noexcept;

    // What a file in it that cannot be written is told by: the folder, `why`, and what to do.
    [[noreturn]] void ThrowFailed(const std::string& why) const;

  private:
    std::filesystem::path path_;
};

}  // namespace fbr
