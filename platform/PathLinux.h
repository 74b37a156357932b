// A path of the seam as the system's bytes. For the files of platform/ only.
#pragma once

#include <climits>

#include "platform/Errors.h"
#include "platform/Text.h"

namespace platform {

// UTF-8, ended by a zero. A backslash is an ordinary
// character here.
class NativePath {
  public:
    explicit NativePath(const WChar* path) noexcept;

    // 0, kErrorInvalidParameter for null, kErrorPathNotFound for an empty path,
    // kErrorInvalidName for a lone surrogate, kErrorFilenameTooLong,
    // kErrorOutOfMemory.
    Error Status() const noexcept { return status_; }
    const char* Text() const noexcept { return text_; }

    // The error for `number`, which a call on this path has set: a missing parent is told from a
    // missing leaf.
    Error Explain(int number) const noexcept;

  private:
    Error status_ = kErrorSuccess;
    char text_[PATH_MAX];
};

}  // namespace platform
