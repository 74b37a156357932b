// SPDX-License-Identifier: MIT
// Where a path leads.
#pragma once

#include "platform/Errors.h"
#include "platform/Text.h"

namespace platform {

// The one absolute path of the file or folder that `path` names: every spelling of it gives the
// same text. Links are followed, no `.` or `..` is left, and a path without a folder is taken below
// the current one. On Windows case, short names, drives that stand for a folder or a share, dots
// and blanks at the end, `/` and `\\?\` make no difference either. Only names that one file has
// side by side (hard links, mounts of one disk) stay apart. What does not exist yet is taken by its
// name as it is spelled, below a folder that is found so.
//
// The result names the file to every call that takes a path. On Windows it has the sign `\\?\`
// only where it would name another file, or none, without it.
//
// 0; kErrorInvalidName for a path that leads to no file for certain: a link to what does not
// exist, on Windows a device or a stream of a file, text that is no name; kErrorAccessDenied where
// the way to it may not be looked at; kErrorOutOfMemory.
Error RealPath(const WString& path, WString* real) noexcept;

}  // namespace platform
