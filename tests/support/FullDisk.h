// SPDX-License-Identifier: MIT
// A disk that is full, on the system that has such a limit.
#pragma once

#include <sys/resource.h>

#include <csignal>
#include <filesystem>

namespace support {

// While it lives, a file that becomes longer than the one at `path` is by more than `bytes` finds
// no room.
class FullDisk {
  public:
    FullDisk(const std::filesystem::path& path, uint64_t bytes) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit tight = {std::filesystem::file_size(path) + bytes, before_.rlim_max};
        handler_ = std::signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &tight);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

  private:
    rlimit before_{};
    decltype(SIG_IGN) handler_;
};

}  // namespace support
