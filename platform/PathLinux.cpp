#include "platform/PathLinux.h"

#include <sys/stat.h>
#include <cerrno>
#include <cstring>
#include <new>

#include "platform/ErrnoLinux.h"

namespace platform {
namespace {

bool ParentIsMissing(const char* path) {
    const char* slash = std::strrchr(path, '/');
    if (slash == nullptr || slash == path) return false;
    char parent[PATH_MAX];
    const auto length = static_cast<size_t>(slash - path);
    std::memcpy(parent, path, length);
    parent[length] = 0;
    struct stat found;
    return stat(parent, &found) != 0;
}

bool HasLoneSurrogate(WStringView text) {
    for (size_t i = 0; i < text.size(); ++i) {
        if ((text[i] & 0xF800) != 0xD800) continue;
        const bool pair =
            text[i] < 0xDC00 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00;
        if (!pair) return true;
        ++i;
    }
    return false;
}

Error Convert(const WChar* path, char (&out)[PATH_MAX]) {
    if (path == nullptr) return kErrorInvalidParameter;
    const WStringView text(path);
    if (text.empty()) return kErrorPathNotFound;
    if (text.size() >= PATH_MAX) return kErrorFilenameTooLong;
    if (HasLoneSurrogate(text)) return kErrorInvalidName;
    const std::string bytes = ToUtf8(text);
    if (bytes.size() >= PATH_MAX) return kErrorFilenameTooLong;
    std::memcpy(out, bytes.c_str(), bytes.size() + 1);
    return kErrorSuccess;
}

}  // namespace

NativePath::NativePath(const WChar* path) noexcept {
    text_[0] = 0;
    try {
        status_ = Convert(path, text_);
    } catch (const std::bad_alloc&) {
        status_ = kErrorOutOfMemory;
    }
}

Error NativePath::Explain(int number) const noexcept {
    if (number == ENOENT && ParentIsMissing(text_)) return kErrorPathNotFound;
    return FromErrno(number);
}

}  // namespace platform
