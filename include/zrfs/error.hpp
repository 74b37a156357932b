// SPDX-License-Identifier: MIT
// Failures: a std::system_error whose code is a FBR_STATUS of zrfs::category().
#ifndef ZRFS_ERROR_HPP
#define ZRFS_ERROR_HPP

// GCC 10 has a number of its own for its C++20.
#if (defined(_MSVC_LANG) ? _MSVC_LANG : __cplusplus) <= 201703L
#error "zrfs/store.hpp needs C++20: compile with -std=c++20 (MSVC: /std:c++20)"
#endif

#if __has_include("ZrFsLibrary.h")
#include "ZrFsLibrary.h"
#else
#include "../ZrFsLibrary.h"
#endif

#include <concepts>
#include <string>
#include <system_error>

namespace zrfs {

// The category of FBR_STATUS; its messages are those of FsStatusText.
inline const std::error_category& category() noexcept {
    class Category : public std::error_category {
      public:
        const char* name() const noexcept override { return "zrfs"; }
        std::string message(int code) const override {
            return FsStatusText(static_cast<FBR_STATUS>(code));
        }
    };
    static const Category instance;
    return instance;
}

inline std::error_code make_error_code(FBR_STATUS status) noexcept {
    return {static_cast<int>(status), category()};
}

// The status of a failure; FSSTATUS_FAILED of one that is none of the library's.
inline FBR_STATUS status_of(const std::error_code& code) noexcept {
    return code.category() == category() ? static_cast<FBR_STATUS>(code.value()) : FSSTATUS_FAILED;
}

// Throws for anything but success. `what` tells what was done, and on what: a text, or what makes
// one, which is asked after a failure only.
inline void check(FBR_STATUS status, const std::string& what) {
    if (status != FSSTATUS_SUCCESS) throw std::system_error(make_error_code(status), what);
}
template <std::invocable What>
void check(FBR_STATUS status, const What& what) {
    if (status != FSSTATUS_SUCCESS) throw std::system_error(make_error_code(status), what());
}

}  // namespace zrfs

#endif
