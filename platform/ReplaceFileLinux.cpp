// SPDX-License-Identifier: MIT
#include "platform/ReplaceFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <cerrno>
#include <ctime>

#include "platform/Clock.h"
#include "platform/ErrnoLinux.h"
#include "platform/PathLinux.h"

namespace platform {
namespace {

bool LeadsNowhere(const char* path) {
    struct stat link;
    return lstat(path, &link) == 0 && S_ISLNK(link.st_mode);
}

// Where there is an access list, the mode's group bits are its mask: without the list they would
// let the group in. 0 or an errno value.
int CopyAccessList(const char* from, const char* to) {
    constexpr const char* kAccessList = "system.posix_acl_access";
    char list[16384];
    const ssize_t size = getxattr(from, kAccessList, list, sizeof list);
    if (size < 0) return errno == ENODATA || errno == ENOTSUP ? 0 : errno;
    return setxattr(to, kAccessList, list, static_cast<size_t>(size), 0) == 0 ? 0 : errno;
}

void Pause() {
    const timespec some{0, 5'000'000};
    nanosleep(&some, nullptr);
}

}  // namespace

Error LookAtFile(const WChar* path, FileState* state) noexcept {
    *state = {};
    const NativePath native(path);
    if (native.Status() != kErrorSuccess) return Leave(native.Status());
    struct stat found;
    if (stat(native.Text(), &found) != 0) {
        if (errno != ENOENT) return Leave(native.Explain(errno));
        return Leave(LeadsNowhere(native.Text()) ? kErrorInvalidName : kErrorSuccess);
    }
    state->exists = true;
    state->volume = found.st_dev;
    state->file[0] = found.st_ino;
    state->size = static_cast<uint64_t>(found.st_size);
    state->written = static_cast<uint64_t>(found.st_mtim.tv_sec) * 1'000'000'000 +
                     static_cast<uint64_t>(found.st_mtim.tv_nsec);
    return Leave(kErrorSuccess);
}

Error MakePrivateFolder(const WChar* path) noexcept {
    const NativePath native(path);
    if (native.Status() != kErrorSuccess) return Leave(native.Status());
    if (mkdir(native.Text(), 0700) == 0) return Leave(kErrorSuccess);
    return Leave(errno == EEXIST ? kErrorAlreadyExists : native.Explain(errno));
}

Error CopyOwnerAndMode(const WChar* from, const WChar* fresh) noexcept {
    const NativePath source(from);
    const NativePath target(fresh);
    if (source.Status() != kErrorSuccess) return Leave(source.Status());
    if (target.Status() != kErrorSuccess) return Leave(target.Status());
    struct stat old;
    struct stat made;
    if (stat(source.Text(), &old) != 0) return Leave(source.Explain(errno));
    if (stat(target.Text(), &made) != 0) return Leave(target.Explain(errno));
    const bool isAnothers = old.st_uid != made.st_uid || old.st_gid != made.st_gid;
    if (isAnothers && chown(target.Text(), old.st_uid, old.st_gid) != 0) {
        return Leave(target.Explain(errno));
    }
    // After the owner, for a change of the owner takes mode bits away.
    if (chmod(target.Text(), old.st_mode & 07777) != 0) return Leave(target.Explain(errno));
    const int number = CopyAccessList(source.Text(), target.Text());
    return Leave(number == 0 ? kErrorSuccess : target.Explain(number));
}

ReplacementLock::~ReplacementLock() {
    if (file_ >= 0) close(static_cast<int>(file_));
}

Error ReplacementLock::Take(const WChar* path, uint32_t milliseconds) noexcept {
    const NativePath native(path);
    if (native.Status() != kErrorSuccess) return Leave(native.Status());
    file_ = open(native.Text(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (file_ < 0) return Leave(native.Explain(errno));
    const uint32_t start = TickCount();
    for (;;) {
        if (flock(static_cast<int>(file_), LOCK_EX | LOCK_NB) == 0) return Leave(kErrorSuccess);
        if (errno != EWOULDBLOCK && errno != EINTR) return Leave(kErrorSuccess);
        if (TickCount() - start >= milliseconds) return Leave(kErrorSharingViolation);
        Pause();
    }
}

}  // namespace platform
