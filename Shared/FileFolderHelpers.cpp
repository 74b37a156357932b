// SPDX-License-Identifier: MIT
#include "Shared/FileFolderHelpers.h"

#include <vector>

#include "Shared/logging/Logger.h"
#include "platform/FileSystem.h"
#include "platform/HostPath.h"
#include "platform/PageFile.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "Shared/FileFolderHelpers"

namespace ZrSharedHelpers {
namespace {

using platform::Error;
using platform::kHostSeparator;
using platform::kLongPathPrefix;
using platform::WString;
using Varnhold::Hob::Detail::kError;

constexpr Error kErrorBadPathname = 161;

// "\\?\C:" has no attributes of its own, and is there all the same.
bool IsDriveRoot(const WString& path) {
    return path.size() == 6 && path.starts_with(kLongPathPrefix) && path.back() == ':';
}

// 0 when `path` exists, an error that ends the search for its nearest existing parent, or nothing
// (kErrorFileNotFound) when it has to be made.
Error Look(const WString& path) {
    uint32_t attributes = 0;
    const Error error = platform::GetAttributes(path.c_str(), &attributes);
    if (error == platform::kErrorSuccess) return error;
    if (error == platform::kErrorFileNotFound || error == platform::kErrorPathNotFound) {
        return platform::kErrorFileNotFound;
    }
    if (error == platform::kErrorInvalidParameter) {
        return IsDriveRoot(path) ? platform::kErrorSuccess : error;
    }
    ZRFS_LOG(kError, "ZrSharedHelpers::EnsurePathExists", "GetFileAttributes error: [{}]", error);
    return error;
}

}  // namespace

uint32_t DeleteFileWithRetry(const WString& path) {
    constexpr const char* kFunction = "ZrSharedHelpers::DeleteFileWithRetry";
    uint32_t attributes = 0;
    Error error = platform::GetAttributes(path.c_str(), &attributes);
    if (error != platform::kErrorSuccess) {
        ZRFS_LOG(kError, kFunction, "Failed to get file attributes for [{}]",
                 platform::ToUtf8(path));
        return error;
    }
    const bool isFolder = (attributes & platform::kAttributeFolder) != 0;
    const auto remove = isFolder ? platform::RemoveFolder : platform::DeleteFileByPath;
    error = remove(path.c_str());
    if (error != platform::kErrorAccessDenied) return error;

    attributes &= ~(platform::kAttributeReadOnly | platform::kAttributeHidden);
    error = platform::SetAttributes(path.c_str(), attributes);
    if (error != platform::kErrorSuccess) {
        ZRFS_LOG(kError, kFunction, "Failed to set file attributes for [{}]",
                 platform::ToUtf8(path));
        return error;
    }
    return remove(path.c_str());
}

uint32_t EnsurePathExists(const WString& path) {
    if (path.empty()) return platform::kErrorInvalidParameter;
    // What is missing, the innermost folder first.
    std::vector<WString> missing;
    WString current = path;
    for (;;) {
        const Error error = Look(current);
        if (error == platform::kErrorSuccess) break;
        if (error != platform::kErrorFileNotFound) return error;
        const size_t cut = current.rfind(kHostSeparator);
        if (cut == WString::npos || current == kLongPathPrefix) return kErrorBadPathname;
        missing.push_back(current);
        current.resize(cut);
        if (!current.empty()) continue;
        // Nothing is left: the root of the one tree, or a path that names no drive.
        if (kHostSeparator == '/') break;
        return platform::kErrorInvalidParameter;
    }
    for (; !missing.empty(); missing.pop_back()) {
        const Error error = platform::MakeFolder(missing.back().c_str());
        if (error != platform::kErrorSuccess && error != platform::kErrorAlreadyExists) {
            return error;
        }
    }
    return platform::kErrorSuccess;
}

}  // namespace ZrSharedHelpers
