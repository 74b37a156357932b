// SPDX-License-Identifier: MIT
#include "server/PathGuard.h"

#include <algorithm>
#include <stdexcept>

#include "platform/HostPath.h"
#include "platform/RealPath.h"

namespace server {

namespace fs = std::filesystem;
using platform::kHostSeparator;
using platform::WString;
using platform::WStringView;

namespace {

WString ToText(const fs::path& path) {
    return platform::FromUtf8(path.string<char>());
}

// The log beside a container, which is named after the text before its path's last dot, is
// there or not, and no link. Where the file's own name has no dot, the log would be elsewhere.
bool HasItsLogBeside(const WString& file) {
    const size_t dot = file.rfind('.');
    if (dot == WString::npos || dot < file.rfind(kHostSeparator)) return false;
    const WString log = file.substr(0, dot) + WTEXT(".log");
    WString real;
    return platform::RealPath(log, &real) == 0 && platform::CompareFolded(real, log) == 0;
}

}  // namespace

PathGuard::PathGuard(std::optional<fs::path> root, WString cluster) : cluster_(std::move(cluster)) {
    if (!root) return;
    folder_ = platform::RootFolder::Open(ToText(fs::absolute(*root)));
    if (folder_ == nullptr)
        throw std::runtime_error(root->string() + " is not a folder that can be served");
    root_ = folder_->Path();
}

std::optional<WString> PathGuard::AdmitFile(const WString& path) const {
    if (root_.empty()) return path;
    WString whole;
    try {
        whole = ToText(fs::path(root_) / fs::path(path));  // an absolute path stays itself
    } catch (const std::exception&) {
        return std::nullopt;  // no text
    }
    WString real;
    if (platform::RealPath(whole, &real) != 0 || !real.starts_with(root_) ||
        real.size() == root_.size() || !HasItsLogBeside(real))
        return std::nullopt;
    return real;
}

// A hive that is mounted already is served as it is, whatever file was named, and unloaded at the
// end. So no two names may be one to the system, or to the helper that is told what to unload in a
// command line: letters and digits of which there is but one spelling, and few signs.
bool PathGuard::AdmitMount(const WString& name) const {
    constexpr WStringView kSigns = WTEXT("-_.{}");
    const auto isPlain = [&](platform::WChar unit) {
        const platform::WChar folded = platform::Fold(unit);
        return (folded >= 'a' && folded <= 'z') || (unit >= '0' && unit <= '9') ||
               kSigns.find(unit) != WStringView::npos;
    };
    if (name.empty() || !std::all_of(name.begin(), name.end(), isPlain)) return false;
    return root_.empty() ||
           (name.front() != '.' && name.back() != '.' &&
            platform::CompareFolded(WStringView(name).substr(0, 2), WTEXT("S-")) != 0);
}

bool PathGuard::AdmitCluster(const WString& path) const {
    return !cluster_.empty() && path.starts_with(cluster_) &&
           (path.size() == cluster_.size() || path[cluster_.size()] == '/');
}

std::optional<StoreRequest> PathGuard::Admit(uint32_t method, const WString& path) const {
    // The path is a single token: no server name, no flag.
    if (path.empty() || path.find('|') != WString::npos) return std::nullopt;
    StoreRequest request{static_cast<FBR_METHOD>(method), path};
    WString mount;
    switch (method) {
        case kMethodRemoteContainer:
            request.method = FS_VR_METHOD_TARN;
            break;
        case FS_VR_METHOD_CLUSTER:
            return AdmitCluster(path) ? std::optional(request) : std::nullopt;
        case FS_VR_METHOD_NATIVE:
            return root_.empty() ? std::optional(request) : std::nullopt;
        case FS_VR_METHOD_HIVE: {
            const size_t mark = path.find('!');
            if (mark == WString::npos || !AdmitMount(path.substr(mark + 1))) return std::nullopt;
            mount = path.substr(mark);
            request.path = path.substr(0, mark);
            break;
        }
        case FS_VR_METHOD_OFFLINE:
            break;
        default:
            return std::nullopt;
    }
    const std::optional<WString> file = AdmitFile(request.path);
    // The signs of the path grammar: where a folder has one in its name, the store would be
    // looked for elsewhere.
    if (!file || file->find('|') != WString::npos) return std::nullopt;
    if (!mount.empty() && file->find('!') != WString::npos) return std::nullopt;
    request.path = *file + mount;
    return request;
}

}  // namespace server
