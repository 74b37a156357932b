// SPDX-License-Identifier: MIT
// A folder that the file operations of a thread can be kept in, whatever becomes of the paths
// meanwhile.
#pragma once

#include <memory>

#include "platform/Errors.h"
#include "platform/Resources.h"
#include "platform/Text.h"

namespace platform {

// The folder is held open: what stands at its path later does not matter.
class RootFolder {
  public:
    // Links on the way are followed, now and never again. Null on failure, with LastError.
    static std::unique_ptr<RootFolder> Open(const WString& path);
    ~RootFolder();
    RootFolder(const RootFolder&) = delete;
    RootFolder& operator=(const RootFolder&) = delete;

    // Absolute, without links, with a separator at its end.
    const WString& Path() const { return path_; }
    Handle Folder() const { return folder_; }

  private:
    RootFolder(Handle folder, WString path) : folder_(folder), path_(std::move(path)) {}
    Handle folder_;
    WString path_;
};

// For as long as one lives, what the thread opens, makes, changes, renames or removes by the
// functions of PageFile.h, Resources.h and FileSystem.h lies below `root` (null: anywhere): it is
// reached from the folder that is held open, by its path behind the root's, and no link is
// followed. Any other path is kErrorAccessDenied. They nest; the latest counts.
class WithinRoot {
  public:
    explicit WithinRoot(const RootFolder* root) noexcept;
    ~WithinRoot();
    WithinRoot(const WithinRoot&) = delete;
    WithinRoot& operator=(const WithinRoot&) = delete;

  private:
    const RootFolder* before_;
};
// Null where there is none.
const RootFolder* CurrentRoot() noexcept;

// The folder in which a file of the thread's root stands. On Windows, where some files are opened
// by the system itself, no folder on the way can be renamed or become a link while it is held;
// elsewhere every operation finds its own way.
class HeldFolder {
  public:
    // Without a root nothing is held.
    explicit HeldFolder(const WChar* path) noexcept;
    ~HeldFolder();
    HeldFolder(const HeldFolder&) = delete;
    HeldFolder& operator=(const HeldFolder&) = delete;

    // 0; kErrorAccessDenied for a path that is not below the root, or that has a link in it;
    // kErrorPathNotFound, or another reason why the folder cannot be opened.
    Error Status() const noexcept { return status_; }
    bool IsLimited() const noexcept { return root_ != nullptr; }
    // 0 when the file, which is open, stands below the root.
    Error Verify(Handle file) const noexcept;

  private:
    const RootFolder* root_;
    Error status_ = kErrorSuccess;
    Handle folder_ = nullptr;
};

}  // namespace platform
