// SPDX-License-Identifier: MIT
#include "platform/FileMarkLinux.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/ErrnoLinux.h"
#include "platform/PageFile.h"

namespace platform {
namespace {

constexpr off_t kMark = static_cast<off_t>(kMarkOffset);
constexpr off_t kBesideMark = kMark + 1;  // shared by the one who has the file beside
constexpr off_t kRowMark = kMark + 2;     // of the one who waits longest

struct flock ByteLock(short type, off_t byte) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

// 0 or an errno value.
int SetLock(int descriptor, short type, off_t byte) {
    struct flock lock = ByteLock(type, byte);
    while (fcntl(descriptor, F_OFD_SETLK, &lock) != 0)
        if (errno != EINTR) return errno;
    return 0;
}

// Would a lock of this type meet one of another opening?
bool Meets(int descriptor, short type, off_t byte, off_t bytes = 1) {
    struct flock lock = ByteLock(type, byte);
    lock.l_len = bytes;
    return fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

bool IsBusy(int number) {
    return number == EAGAIN || number == EACCES;
}

constexpr size_t kPathRoom = 4096;

// The path of an open file, with 64 bytes to spare.
bool PathOf(int descriptor, char (&path)[kPathRoom]) {
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const ssize_t length = readlink(link, path, sizeof path - 64);
    if (length <= 0 || path[0] != '/') return false;
    path[length] = 0;
    return true;
}

// The file beside: in the same folder, named for the file and no name of it.
bool BesidePath(int descriptor, const struct stat& file, char (&path)[kPathRoom]) {
    if (!PathOf(descriptor, path)) return false;
    char* name = std::strrchr(path, '/') + 1;
    std::snprintf(name, 64, ".fbr-lock-%llx-%llx", static_cast<unsigned long long>(file.st_dev),
                  static_cast<unsigned long long>(file.st_ino));
    return true;
}

// Those who may write the file may open the one beside, and nobody else.
mode_t BesideMode(mode_t mode) {
    mode_t result = S_IRUSR | S_IWUSR;
    if ((mode & S_IWGRP) != 0) result |= S_IRGRP | S_IWGRP;
    if ((mode & S_IWOTH) != 0) result |= S_IROTH | S_IWOTH;
    return result;
}

// Laid there by somebody who may not write the file it is of no use.
bool IsTrusted(const struct stat& beside, const struct stat& file) {
    if (!S_ISREG(beside.st_mode)) return false;
    if (beside.st_uid == file.st_uid || beside.st_uid == 0 || beside.st_uid == geteuid())
        return true;
    return (file.st_mode & S_IWOTH) != 0 ||
           ((file.st_mode & S_IWGRP) != 0 && beside.st_gid == file.st_gid);
}

int OpenBeside(const char* path, const struct stat& file) {
    const int made = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (made >= 0) {
        if ((file.st_mode & S_IWGRP) != 0 && fchown(made, static_cast<uid_t>(-1), file.st_gid) != 0)
            errno = 0;
        fchmod(made, BesideMode(file.st_mode));
        return made;
    }
    return errno == EEXIST ? open(path, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK) : -1;
}

// Is what is open still what stands at the path? Its last owner takes it away.
bool StillThere(int descriptor, const char* path, const struct stat& file) {
    struct stat own, there;
    return fstat(descriptor, &own) == 0 && stat(path, &there) == 0 && own.st_dev == there.st_dev &&
           own.st_ino == there.st_ino && IsTrusted(own, file);
}

}  // namespace

Error FileMark::TakeBeside(int descriptor, bool* taken) {
    struct stat file;
    if (fstat(descriptor, &file) != 0) return FromErrno(errno);
    // Without a file beside the mark is simply not to be had as long as the shared locks stand.
    char path[kPathRoom];
    if (!BesidePath(descriptor, file, path)) return kErrorSuccess;
    beside_ = OpenBeside(path, file);
    if (beside_ < 0) return kErrorSuccess;
    const bool has = SetLock(beside_, F_WRLCK, 0) == 0 && StillThere(beside_, path, file) &&
                     SetLock(descriptor, F_RDLCK, kBesideMark) == 0;
    // One who came the first way looks at the second byte behind his lock, as we look at his now.
    *taken = has && !Meets(descriptor, F_RDLCK, kMark);
    if (*taken) return kErrorSuccess;
    SetLock(descriptor, F_UNLCK, kBesideMark);
    if (has) unlink(path);
    close(beside_);
    beside_ = -1;
    return kErrorSuccess;
}

void FileMark::DropBeside() {
    char path[kPathRoom];
    if (PathOf(beside_, path)) unlink(path);
    close(beside_);
    beside_ = -1;
}

void FileMark::LeaveRow(int descriptor) {
    if (first_) SetLock(descriptor, F_UNLCK, kRowMark);
    first_ = false;
}

Error FileMark::TakeFirstWay(int descriptor, bool* taken) {
    int number = SetLock(descriptor, F_WRLCK, kMark);
    // A writer may have let go between two looks: only shared locks that stay lead to the other
    // way.
    if (IsBusy(number) && !Meets(descriptor, F_RDLCK, kMark))
        number = SetLock(descriptor, F_WRLCK, kMark);
    if (number == 0) {
        // One look at both bytes behind: seldom is there anything.
        if (!Meets(descriptor, F_WRLCK, kBesideMark, 2)) {
            *taken = true;
            return kErrorSuccess;
        }
        const bool waits = !first_ && Meets(descriptor, F_RDLCK, kRowMark);
        const bool beside = Meets(descriptor, F_WRLCK, kBesideMark);
        *taken = !waits && !beside;
        if (*taken) return kErrorSuccess;
        SetLock(descriptor, F_UNLCK, kMark);
        if (!beside) return kErrorSuccess;
    } else if (!IsBusy(number)) {
        return FromErrno(number);
    } else if (Meets(descriptor, F_RDLCK, kMark)) {
        return kErrorSuccess;  // a writer has it
    }
    return TakeBeside(descriptor, taken);
}

Error FileMark::Take(int descriptor, bool* taken) {
    *taken = false;
    const Error error = TakeFirstWay(descriptor, taken);
    if (*taken)
        LeaveRow(descriptor);
    else if (!first_)
        first_ = SetLock(descriptor, F_WRLCK, kRowMark) == 0;
    return Leave(error);
}

void FileMark::Drop(int descriptor) {
    LeaveRow(descriptor);
    if (beside_ >= 0) {
        DropBeside();
        SetLock(descriptor, F_UNLCK, kBesideMark);
    } else {
        SetLock(descriptor, F_UNLCK, kMark);
    }
}

bool FileMark::IsTakenElsewhere(int descriptor) {
    return Meets(descriptor, F_RDLCK, kMark) || Meets(descriptor, F_WRLCK, kBesideMark);
}

}  // namespace platform
