// SPDX-License-Identifier: MIT
#include "tools/store/Status.h"

#include <fmt/format.h>

#include <algorithm>

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
        case FS_VR_METHOD_CLUSTER:
            return "; a store on a cluster needs Linux, libcurl (Debian: libcurl4) and a build "
                   "that found it";
        case FS_VR_METHOD_VARNHOLD_TARN:
            return "; the method is reserved";
        default:
            return "";
    }
}

}  // namespace

std::string StatusText(FBR_STATUS status) {
    return fmt::format("{} ({})", FsStatusText(status), FsStatusName(status));
}

std::string StatusText(FBR_STATUS status, const std::string& why) {
    if (why.empty() || why.front() == ';') return StatusText(status) + why;
    const size_t end = std::min(why.find(';'), why.size());
    return fmt::format("{} ({}){}", why.substr(0, end), FsStatusName(status), why.substr(end));
}

std::string Advice(FBR_STATUS status, FBR_METHOD method) {
    switch (status) {
        case FSSTATUS_NOT_IMPLEMENTED:
            return MissingMethod(method);
        case FSSTATUS_LOCK_FAILED:
            return "; somebody else holds the store: try again later";
        case FSSTATUS_FILE_CORRUPT:
            return method == FS_VR_METHOD_CLUSTER
                       ? "; fbr check tells all that are missing or damaged"
                       : "; fbr check tells more of a container";
        case FSSTATUS_VERSION_MISMATCH:
            return "; take the version of the tool that made it, or fbr repair where fbr check "
                   "finds "
                   "damage";
        case FSSTATUS_ACCESS_DENIED:
            return method == FS_VR_METHOD_CLUSTER
                       ? "; the line above tells what the cluster says: it goes by ZRFS_ETCD_USER "
                         "and what that user's roles permit below the prefix"
                       : "; ask its owner for the right, or take a copy of the file";
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
