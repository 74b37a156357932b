// SPDX-License-Identifier: MIT
#include "platform/PathLinux.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "platform/ErrnoLinux.h"
#include "platform/RootFolder.h"

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

bool IsDots(const char* component, size_t length) {
    return (length == 1 || length == 2) && std::strncmp(component, "..", length) == 0;
}

// Opens the folder of the component `leaf`, which stands behind `path` and a slash, one component
// after the other and no link among them. -1 and errno on failure.
int OpenFolderOf(int from, const char* path, const char* leaf) {
    constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    int folder = openat(from, ".", kFlags);
    while (path < leaf && folder >= 0) {
        const char* end = std::strchr(path, '/');
        const auto length = static_cast<size_t>(end - path);
        if (length > 0) {
            char component[NAME_MAX + 1];
            const bool fits = length <= NAME_MAX && !IsDots(path, length);
            if (fits) std::memcpy(component, path, length);
            component[fits ? length : 0] = 0;
            const int next = fits ? openat(folder, component, kFlags) : -1;
            const int number = fits ? errno : EACCES;
            close(folder);
            folder = next;
            errno = number;
        }
        path = end + 1;
    }
    return folder;
}

}  // namespace

NativePath::NativePath(const WChar* path) noexcept {
    text_[0] = 0;
    try {
        status_ = Convert(path, text_);
        if (status_ == kErrorSuccess && CurrentRoot() != nullptr) status_ = EnterRoot();
    } catch (const std::bad_alloc&) {
        status_ = kErrorOutOfMemory;
    }
}

NativePath::~NativePath() {
    if (folder_ >= 0) close(folder_);
}

int NativePath::NoFollow() const noexcept {
    return folder_ >= 0 ? O_NOFOLLOW : 0;
}

// From here on the text is the last component's, in a folder that is held open.
Error NativePath::EnterRoot() noexcept {
    const RootFolder& root = *CurrentRoot();
    const std::string prefix = ToUtf8(root.Path());
    if (std::strncmp(text_, prefix.c_str(), prefix.size()) != 0) return kErrorAccessDenied;
    const char* leaf = std::strrchr(text_, '/') + 1;
    const size_t length = std::strlen(leaf);
    if (length == 0 || length > NAME_MAX || IsDots(leaf, length)) return kErrorAccessDenied;
    const auto from = static_cast<int>(reinterpret_cast<intptr_t>(root.Folder()));
    folder_ = OpenFolderOf(from, text_ + prefix.size(), leaf);
    if (folder_ < 0) {
        const bool isLink = errno == ELOOP || errno == ENOTDIR;
        return errno == ENOENT ? kErrorPathNotFound
               : isLink        ? kErrorAccessDenied
                               : FromErrno(errno);
    }
    char inFolder[PATH_MAX];
    std::snprintf(inFolder, sizeof inFolder, "/proc/self/fd/%d/%s", folder_, leaf);
    std::strcpy(text_, inFolder);
    return kErrorSuccess;
}

Error NativePath::Explain(int number) const noexcept {
    if (number == ENOENT && ParentIsMissing(text_)) return kErrorPathNotFound;
    return FromErrno(number);
}

}  // namespace platform
