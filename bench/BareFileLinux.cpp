// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>

#include "bench/BareFile.h"

namespace bench {

BareFile::BareFile(const std::filesystem::path& path)
    : descriptor_(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {
    if (descriptor_ < 0) throw std::runtime_error("cannot make " + path.string());
}

BareFile::~BareFile() {
    close(descriptor_);
}

bool BareFile::Write(uint64_t offset, const void* buffer, uint32_t bytes) {
    return pwrite(descriptor_, buffer, bytes, static_cast<off_t>(offset)) ==
           static_cast<ssize_t>(bytes);
}

bool BareFile::Read(uint64_t offset, void* buffer, uint32_t bytes) {
    return pread(descriptor_, buffer, bytes, static_cast<off_t>(offset)) ==
           static_cast<ssize_t>(bytes);
}

}  // namespace bench
