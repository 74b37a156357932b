// SPDX-License-Identifier: MIT
// What it takes to put a new file in the place of another one that somebody may have open, read,
// or replace at the same time.
#pragma once

#include <cstdint>

#include "platform/Errors.h"
#include "platform/Text.h"

namespace platform {

// Which file stands at a path, and in which state it is.
struct FileState {
    bool exists = false;
    uint64_t volume = 0;
    uint64_t file[2] = {};
    uint64_t size = 0;
    uint64_t written = 0;  // when, in the system's own unit

    bool operator==(const FileState&) const = default;
};

// Each returns 0 or an error number, which is then also the last error.

// Looks through a link. It is no failure that there is nothing; kErrorInvalidName for a link that
// leads to nothing.
Error LookAtFile(const WChar* path, FileState* state) noexcept;
// A folder that keeps to itself what is made in it until that is moved out. kErrorAlreadyExists
// when something of that name does.
Error MakePrivateFolder(const WChar* path) noexcept;
// Gives `fresh` what stands for a file's owner and mode here. kErrorAccessDenied when the system
// lets nobody but an administrator do so.
Error CopyOwnerAndMode(const WChar* from, const WChar* fresh) noexcept;

// Keeps others of its kind away from a file while it lives; whoever just reads and writes is not
// kept. It goes with its process. On Linux it is on the file itself, so that it holds nobody up
// once another file stands at the path; on Windows, where such a file could not be renamed over, on
// one beside it.
class ReplacementLock {
  public:
    ReplacementLock() = default;
    ~ReplacementLock();
    ReplacementLock(const ReplacementLock&) = delete;
    ReplacementLock& operator=(const ReplacementLock&) = delete;

    // kErrorSharingViolation when others have held it for that long. Where the file system knows no
    // such locks it is granted.
    Error Take(const WChar* path, uint32_t milliseconds) noexcept;

  private:
    intptr_t file_ = -1;
};

}  // namespace platform
