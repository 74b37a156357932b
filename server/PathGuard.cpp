#include "server/PathGuard.h"

#include <algorithm>

namespace server {

namespace fs = std::filesystem;
using platform::WString;

namespace {

WString ToText(const fs::path& path) {
    return platform::FromUtf8(path.string<char>());
}

// The companion of a container is named after the text before its path's last dot. Where the
// file's own name has none, that would be somewhere else.
bool NamesItsOwnLog(const fs::path& path) {
    return path.filename().native().find(fs::path::value_type('.')) != fs::path::string_type::npos;
}

bool IsBelow(const fs::path& path, const fs::path& root) {
    const auto [end, ignored] = std::mismatch(root.begin(), root.end(), path.begin(), path.end());
    return end == root.end() && path != root;
}

}  // namespace

PathGuard::PathGuard(std::optional<fs::path> root) {
    if (root) root_ = fs::canonical(*root);
}

std::optional<WString> PathGuard::AdmitFile(const WString& path) const {
    if (!root_) return path;
    const fs::path named(path);
    std::error_code error;
    // Links are followed before the test, so that none leads out.
    const fs::path real = fs::weakly_canonical(named.is_absolute() ? named : *root_ / named, error);
    if (error || !IsBelow(real, *root_) || !NamesItsOwnLog(real)) return std::nullopt;
    return ToText(real);
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
        case FS_VR_METHOD_NATIVE:
            return root_ ? std::nullopt : std::optional(request);
        case FS_VR_METHOD_HIVE: {
            const size_t mark = path.find('!');
            if (mark == WString::npos) return std::nullopt;
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
    if (!file) return std::nullopt;
    request.path = *file + mount;
    return request;
}

}  // namespace server
