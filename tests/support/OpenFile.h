// SPDX-License-Identifier: MIT
// Opening a page file in one step.
#pragma once

#include <memory>

#include "platform/PageFile.h"
#include "platform/Resources.h"

namespace support {

// Null when the file cannot be opened; platform::LastError tells why.
inline std::unique_ptr<platform::PageFile> OpenFile(const platform::WString& path,
                                                    platform::Disposition disposition,
                                                    bool readOnly = false) {
    const platform::Handle handle = platform::OpenFileHandle(
        path.c_str(), readOnly, static_cast<uint32_t>(disposition), nullptr);
    return std::unique_ptr<platform::PageFile>(platform::AdoptFileHandle(handle, path.c_str()));
}

// Writes one buffer.
inline platform::Error WriteAt(platform::PageFile& file, uint64_t offset, std::string_view text,
                               uint32_t* done) {
    const void* buffer = text.data();
    return file.Write(offset, &buffer, 1, static_cast<uint32_t>(text.size()), done);
}

}  // namespace support
