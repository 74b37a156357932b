// SPDX-License-Identifier: MIT
#include "platform/FileSystem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/ErrnoLinux.h"
#include "platform/PathLinux.h"

namespace platform {
namespace {

Error FromCreation(const NativePath& path, int number) {
    return number == EEXIST ? kErrorAlreadyExists : path.Explain(number);
}

// Some file systems cannot rename without replacing: there a second name is made and the first
// one removed, which never replaces either.
int RenameWithoutReplacing(const char* from, const char* to) {
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    if (link(from, to) != 0) return errno;
    unlink(from);
    return 0;
}

// A new name is safe once its folder is. A folder that cannot be opened is left to the system.
void FlushFolderOf(const char* path) {
    char folder[PATH_MAX];
    const char* slash = std::strrchr(path, '/');
    const size_t length = slash == nullptr ? 0 : static_cast<size_t>(slash - path) + 1;
    std::memcpy(folder, path, length);
    std::strcpy(folder + length, ".");
    const int descriptor = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    fsync(descriptor);
    close(descriptor);
}

}  // namespace

Error GetAttributes(const WChar* path, uint32_t* attributes) noexcept {
    const NativePath native(path);
    if (native.Status() != kErrorSuccess) return Leave(native.Status());
    struct stat found;
    if (stat(native.Text(), &found) != 0) return Leave(native.Explain(errno));
    uint32_t bits = S_ISDIR(found.st_mode) ? kAttributeFolder : 0;
    if ((found.st_mode & S_IWUSR) == 0) bits |= kAttributeReadOnly;
    *attributes = bits != 0 ? bits : kAttributeNormal;
    return Leave(kErrorSuccess);
}

Error SetAttributes(const WChar* path, uint32_t attributes) noexcept {
    const NativePath native(path);
    if (native.Status() != kErrorSuccess) return Leave(native.Status());
    struct stat found;
    if (stat(native.Text(), &found) != 0) return Leave(native.Explain(errno));
    if (native.NoFollow() != 0) return Leave(kErrorAccessDenied);  // it might be a link by now
    const mode_t mode = (attributes & kAttributeReadOnly) != 0
                            ? found.st_mode & ~mode_t{S_IWUSR | S_IWGRP | S_IWOTH}
                            : found.st_mode | S_IWUSR;
    return Leave(chmod(native.Text(), mode & 07777) == 0 ? kErrorSuccess : native.Explain(errno));
}

Error MakeFolder(const WChar* path) noexcept {
    const NativePath native(path);
    if (native.Status() != kErrorSuccess) return Leave(native.Status());
    return Leave(mkdir(native.Text(), 0777) == 0 ? kErrorSuccess : FromCreation(native, errno));
}

Error RemoveFolder(const WChar* path) noexcept {
    const NativePath native(path);
    if (native.Status() != kErrorSuccess) return Leave(native.Status());
    if (rmdir(native.Text()) == 0) return Leave(kErrorSuccess);
    return Leave(errno == ENOTEMPTY ? kErrorFolderNotEmpty : native.Explain(errno));
}

Error RenameNew(const WChar* from, const WChar* to, bool durable) noexcept {
    const NativePath source(from);
    const NativePath target(to);
    if (source.Status() != kErrorSuccess) return Leave(source.Status());
    if (target.Status() != kErrorSuccess) return Leave(target.Status());
    const int number = RenameWithoutReplacing(source.Text(), target.Text());
    if (number != 0) return Leave(FromCreation(source, number));
    if (durable) FlushFolderOf(target.Text());
    return Leave(kErrorSuccess);
}

Error RenameOver(const WChar* from, const WChar* to) noexcept {
    const NativePath source(from);
    const NativePath target(to);
    if (source.Status() != kErrorSuccess) return Leave(source.Status());
    if (target.Status() != kErrorSuccess) return Leave(target.Status());
    if (rename(source.Text(), target.Text()) != 0) return Leave(source.Explain(errno));
    FlushFolderOf(target.Text());
    return Leave(kErrorSuccess);
}

}  // namespace platform
