// SPDX-License-Identifier: MIT
// A file of pages: positioned transfers, no shared file position above this line.
#pragma once

#include <cstdint>

#include "platform/Errors.h"
#include "platform/Text.h"

namespace platform {

// Which file it is, whatever it is called: two openings of one file have the same.
struct FileIdentity {
    uint64_t volume = 0;
    uint64_t index = 0;
    bool operator==(const FileIdentity&) const = default;
};

// One open file. Every operation returns 0 or a Win32 error number and may be called from one
// thread at a time. Deleting the object closes the file.
class PageFile {
  public:
    virtual ~PageFile() = default;

    // Reads up to `bytes` at `offset`. At the end of the file fewer bytes are read (possibly
    // none) and the result is still 0; `done` tells how many.
    virtual Error Read(uint64_t offset, void* buffer, uint32_t bytes, uint32_t* done) = 0;

    // Writes `count` buffers of `bytes` bytes each, one behind the other from `offset` on, as one
    // transfer. `done` is the number of bytes written. Writing past the end grows the file.
    virtual Error Write(uint64_t offset, const void* const* buffers, uint32_t count, uint32_t bytes,
                        uint32_t* done) = 0;

    // Sets the file's length.
    virtual Error Cut(uint64_t length) = 0;
    virtual Error Size(uint64_t* length) = 0;
    // Asks the system to bring what was written to the device.
    virtual Error Flush() = 0;

    virtual Error Identity(FileIdentity* identity) = 0;
    // False for a file that was opened for reading only.
    virtual bool IsWritable() const = 0;
    // False when `path`, by which the file was opened, leads to another file now, or to none. Else
    // *length is the file's length, 0 when it cannot be had.
    virtual bool IsAt(const WChar* path, uint64_t* length) = 0;
    // The mark of the file's one writer, far behind its last byte, seen by all who have the file
    // open, whoever and wherever they are, and gone with the file object. *taken is false while
    // another opening has it; an opening for reading only cannot have it. One who was refused may
    // keep a place in the row of those who wait, which DropMark gives up as it does the mark.
    virtual Error TakeMark(bool* taken) = 0;
    virtual void DropMark() = 0;
    // Does another opening have the mark?
    virtual bool IsMarkedElsewhere() = 0;
};

// Win32 creation dispositions.
enum class Disposition : uint32_t { CreateNew = 1, CreateAlways = 2, OpenExisting = 3 };

// For tests: called with each file just opened and its path, and returns the file to be used in
// its place (usually one that owns and forwards to the first). Null removes it.
using PageFileWrapper = PageFile* (*)(PageFile* opened, const WChar* path);
void SetPageFileWrapper(PageFileWrapper wrapper) noexcept;

// Where the mark stands. No file is as long.
inline constexpr uint64_t kMarkOffset = 0x4000000000000000;

// Deletes a file by path. 0 or an error number.
Error DeleteFileByPath(const WChar* path) noexcept;
// 0 when something exists at `path`, else the reason why it cannot be looked at.
Error ProbePath(const WChar* path) noexcept;

}  // namespace platform
