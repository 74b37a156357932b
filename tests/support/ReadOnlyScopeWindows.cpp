// SPDX-License-Identifier: MIT
#include <windows.h>

#include "tests/support/ReadOnlyScope.h"

namespace support {

// A handle that lets others read only.
ReadOnlyScope::ReadOnlyScope(const std::filesystem::path& path)
    : path_(path),
      handle_(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                          nullptr)) {}

ReadOnlyScope::~ReadOnlyScope() {
    CloseHandle(handle_);
}

}  // namespace support
