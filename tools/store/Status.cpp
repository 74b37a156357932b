#include "tools/store/Status.h"

#include <fmt/format.h>

#include <array>
#include <string_view>

namespace fbr {

std::string StatusText(FBR_STATUS status) {
    constexpr std::array<std::string_view, 20> kNames = {
        "FSSTATUS_SUCCESS",           "FSSTATUS_FAILED",
        "FSSTATUS_INVALID_PARAMETER", "FSSTATUS_NOT_FOUND",
        "FSSTATUS_BUFFER_OVERFLOW",   "FSSTATUS_NO_MORE_ENTRIES",
        "FSSTATUS_VERSION_MISMATCH",  "FSSTATUS_LOCK_FAILED",
        "FSSTATUS_ALREADY_EXISTS",    "FSSTATUS_DIR_NOT_EMPTY",
        "FSSTATUS_PATH_NOT_FOUND",    "FSSTATUS_INVALID_NAME",
        "FSSTATUS_FILE_CORRUPT",      "FSSTATUS_NOT_IMPLEMENTED",
        "FSSTATUS_OUT_OF_MEMORY",     "FSSTATUS_ACCESS_DENIED",
        "FSSTATUS_SHARING_VIOLATION", "FSSTATUS_MODULE_NOT_FOUND",
        "FSSTATUS_INVALID_HANDLE",    "FSSTATUS_TREE_DELETE_FAILED",
    };
    const auto number = static_cast<uint32_t>(status);
    return fmt::format("{} ({})", number < kNames.size() ? kNames[number] : "status", number);
}

}  // namespace fbr
