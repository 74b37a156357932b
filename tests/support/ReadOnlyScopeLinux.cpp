// SPDX-License-Identifier: MIT
#include <sys/fsuid.h>
#include <unistd.h>

#include "tests/support/ReadOnlyScope.h"

namespace support {

namespace {

constexpr uid_t kNobody = 65534;

}  // namespace

// The superuser passes every permission test, so it reads files as somebody else meanwhile.
ReadOnlyScope::ReadOnlyScope(const std::filesystem::path& path) : path_(path) {
    namespace fs = std::filesystem;
    fs::permissions(path_, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    if (geteuid() == 0) setfsuid(kNobody);
}

ReadOnlyScope::~ReadOnlyScope() {
    if (geteuid() == 0) setfsuid(0);
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::add, ignored);
}

}  // namespace support
