// SPDX-License-Identifier: MIT
#include "platform/RealPath.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <string_view>

namespace platform {

namespace fs = std::filesystem;

namespace {

// Most paths are, and need no converter.
template <class Text>
bool IsPlain(const Text& text) {
    return std::all_of(text.begin(), text.end(), [](auto unit) { return unit > 0 && unit < 0x7F; });
}

}  // namespace

Error RealPath(const WString& path, WString* real) noexcept {
    try {
        const bool plain = IsPlain(path);
        char all[PATH_MAX];
        if (plain && realpath(std::string(path.begin(), path.end()).c_str(), all) != nullptr &&
            IsPlain(std::string_view(all))) {
            real->assign(all, all + std::strlen(all));
            return kErrorSuccess;
        }
        const fs::path given(path);
        if (realpath(given.c_str(), all) != nullptr) {
            *real = fs::path(all).u16string();
            return kErrorSuccess;
        }
        // Absolute first: where nothing of a relative path exists it would stay relative.
        const fs::path found = fs::weakly_canonical(fs::absolute(given));
        // The tail that is not there was not followed; a dangling link stands at its head.
        fs::path head = found;
        while (!fs::exists(fs::symlink_status(head)) && head.has_relative_path())
            head = head.parent_path();
        if (fs::is_symlink(fs::symlink_status(head))) return kErrorInvalidName;
        *real = found.u16string();
        return kErrorSuccess;
    } catch (const std::bad_alloc&) {
        return kErrorOutOfMemory;
    } catch (const fs::filesystem_error& failure) {
        return failure.code() == std::errc::permission_denied ? kErrorAccessDenied
                                                              : kErrorInvalidName;
    } catch (const std::exception&) {
        return kErrorInvalidName;
    }
}

}  // namespace platform
