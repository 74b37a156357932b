// Where a path leads.
#pragma once

#include "platform/Errors.h"
#include "platform/Text.h"

namespace platform {

// The absolute path of the file or folder that `path` names, with every link on the way followed
// and no `.` or `..` left. What does not exist yet is taken by its name, below a folder that is
// found so.
//
// 0; kErrorInvalidName for a path that leads to no file for certain: a link to what does not
// exist, on Windows a device or a stream of a file, text that is no name.
Error RealPath(const WString& path, WString* real) noexcept;

}  // namespace platform
