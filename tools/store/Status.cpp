#include "tools/store/Status.h"

#include <fmt/format.h>

#include <array>
#include <string_view>

#include "tools/store/Store.h"

namespace fbr {
namespace {

// Why a store of that method cannot be opened here.
std::string MissingMethod(FBR_METHOD method) {
    switch (method) {
        case FS_VR_METHOD_NATIVE:
            return "; the live registry is a part of Windows, and this system has none";
        case FS_VR_METHOD_HIVE:
            return "; only Windows can mount a hive: open the file with --method offline";
        case FS_VR_METHOD_VARNHOLD_TARN:
            return "; the method is reserved";
        default:
            return "";
    }
}

}  // namespace

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

std::string Advice(FBR_STATUS status, FBR_METHOD method) {
    switch (status) {
        case FSSTATUS_NOT_IMPLEMENTED:
            return MissingMethod(method);
        case FSSTATUS_LOCK_FAILED:
            return "; somebody else holds the store: try again later";
        case FSSTATUS_FILE_CORRUPT:
            return "; the file is damaged or is no store of this kind";
        case FSSTATUS_VERSION_MISMATCH:
            return "; the store was made by another version";
        case FSSTATUS_DIR_NOT_EMPTY:
            return "; it has subkeys";
        default:
            return "";
    }
}

void ThrowStatus(const std::string& what, FBR_STATUS status, FBR_METHOD method) {
    throw StoreError(fmt::format("{}: {}{}", what, StatusText(status), Advice(status, method)),
                     status);
}

}  // namespace fbr
