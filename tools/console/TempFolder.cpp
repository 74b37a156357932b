// SPDX-License-Identifier: MIT
#include "tools/console/TempFolder.h"

#include <fmt/format.h>

#include <cstdlib>
#include <random>
#include <stdexcept>
#include <system_error>

namespace fbr {
namespace {

constexpr int kMostTemporaryNames = 100;

[[noreturn]] void Throw(const std::filesystem::path& where, const std::string& why) {
    const std::u8string text = where.u8string();
    throw std::runtime_error(
        fmt::format("cannot keep temporary files in {}: {}; the variable TMPDIR (TMP on Windows) "
                    "names another folder",
                    std::string(text.begin(), text.end()), why));
}

std::filesystem::path Above() {
    std::error_code error;
    auto folder = std::filesystem::temp_directory_path(error);
    if (!error) return folder;
    const char* named = std::getenv("TMPDIR");
    Throw(named != nullptr ? named : "the system's folder", error.message());
}

}  // namespace

TempFolder::TempFolder() {
    const std::filesystem::path above = Above();
    std::random_device random;
    std::error_code error;
    for (int i = 0; i < kMostTemporaryNames && !error; ++i) {
        path_ = above / fmt::format("fbr-{:08x}{:08x}", random(), random());
        if (!std::filesystem::create_directory(path_, error)) continue;
        std::filesystem::permissions(path_, std::filesystem::perms::owner_all, error);
        return;
    }
    Throw(above, error ? error.message() : "all names are taken");
}

void TempFolder::Remove() const noexcept {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
}

void TempFolder::ThrowFailed(const std::string& why) const {
    Throw(path_.parent_path(), why);
}

}  // namespace fbr
