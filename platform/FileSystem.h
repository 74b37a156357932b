// SPDX-License-Identifier: MIT
// Files and folders as a whole: attributes, making, removing and renaming by path. Opening a file
// and transferring bytes is in PageFile.h and Resources.h.
#pragma once

#include <cstdint>

#include "platform/Errors.h"
#include "platform/Text.h"

namespace platform {

// Win32 attribute bits. On Linux kAttributeReadOnly stands for the owner's missing write
// permission, and nothing is ever hidden.
inline constexpr uint32_t kAttributeReadOnly = 0x1;
inline constexpr uint32_t kAttributeHidden = 0x2;
inline constexpr uint32_t kAttributeFolder = 0x10;
inline constexpr uint32_t kAttributeNormal = 0x80;

// Each returns 0 or an error number, which is then also the last error.
Error GetAttributes(const WChar* path, uint32_t* attributes) noexcept;
Error SetAttributes(const WChar* path, uint32_t attributes) noexcept;
// The parent must exist; kErrorAlreadyExists when something of that name does.
Error MakeFolder(const WChar* path) noexcept;
Error RemoveFolder(const WChar* path) noexcept;
// Renames a file inside its folder. Never replaces: kErrorAlreadyExists when `to` exists. With
// `durable` the new name has reached the device when it returns 0.
Error RenameNew(const WChar* from, const WChar* to, bool durable = true) noexcept;
// Renames a file over another one, even a read-only one: the old or the new one is there, whole, at
// every moment. The new name has reached the device when it returns 0. On Windows the attributes
// are the old file's.
Error RenameOver(const WChar* from, const WChar* to) noexcept;

}  // namespace platform
