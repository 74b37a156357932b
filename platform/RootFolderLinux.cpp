// SPDX-License-Identifier: MIT
#include "platform/RootFolder.h"

#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/ErrnoLinux.h"
#include "platform/PathLinux.h"

namespace platform {
namespace {

constexpr char kDeleted[] = " (deleted)";

// What a descriptor was opened on, by the name that it has now.
bool NameOf(int descriptor, std::string* name) {
    char link[32], target[PATH_MAX];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const ssize_t length = readlink(link, target, sizeof target);
    if (length <= 0 || length == sizeof target) return false;
    name->assign(target, static_cast<size_t>(length));
    return name->front() == '/' && !name->ends_with(kDeleted);
}

}  // namespace

std::unique_ptr<RootFolder> RootFolder::Open(const WString& path) {
    const NativePath native(path.c_str());
    if (native.Status() != kErrorSuccess) {
        Leave(native.Status());
        return nullptr;
    }
    const int descriptor = open(native.Text(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    std::string name;
    if (descriptor < 0 || !NameOf(descriptor, &name)) {
        Leave(descriptor < 0 ? FromErrno(errno) : kErrorInvalidName);
        if (descriptor >= 0) close(descriptor);
        return nullptr;
    }
    if (name.back() != '/') name.push_back('/');
    const Handle folder = reinterpret_cast<Handle>(static_cast<intptr_t>(descriptor));
    return std::unique_ptr<RootFolder>(new RootFolder(folder, FromUtf8(name)));
}

RootFolder::~RootFolder() {
    close(static_cast<int>(reinterpret_cast<intptr_t>(folder_)));
}

HeldFolder::HeldFolder(const WChar* path) noexcept
    : root_(CurrentRoot()), status_(NativePath(path).Status()) {}

HeldFolder::~HeldFolder() = default;

// Files are opened without following a link: what is open is below the root.
Error HeldFolder::Verify(Handle) const noexcept {
    return kErrorSuccess;
}

}  // namespace platform
