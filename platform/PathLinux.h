// SPDX-License-Identifier: MIT
// A path of the seam as the system's bytes. For the files of platform/ only.
#pragma once

#include <climits>

#include "platform/Errors.h"
#include "platform/Text.h"

namespace platform {

// UTF-8, ended by a zero. A backslash is an ordinary
// character here.
//
// While the thread has a root, the folder that the path's last component stands in is opened,
// from the root on and without following a link, and the text names that component in it: it
// means the same for as long as the object lives. A link may still stand there, so that calls
// which follow one need NoFollow.
class NativePath {
  public:
    explicit NativePath(const WChar* path) noexcept;
    ~NativePath();
    NativePath(const NativePath&) = delete;
    NativePath& operator=(const NativePath&) = delete;

    // 0, kErrorInvalidParameter for null, kErrorPathNotFound for an empty path,
    // kErrorInvalidName for a lone surrogate, kErrorFilenameTooLong,
    // kErrorOutOfMemory; of a thread with a root, kErrorAccessDenied for what is not below it.
    Error Status() const noexcept { return status_; }
    const char* Text() const noexcept { return text_; }
    // For the flags of open: O_NOFOLLOW while the thread has a root.
    int NoFollow() const noexcept;

    // The error for `number`, which a call on this path has set: a missing parent is told from a
    // missing leaf.
    Error Explain(int number) const noexcept;

  private:
    Error EnterRoot() noexcept;

    int folder_ = -1;
    Error status_ = kErrorSuccess;
    char text_[PATH_MAX];
};

}  // namespace platform
