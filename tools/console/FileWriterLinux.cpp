// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <random>
#include <system_error>
#include <utility>

#include "tools/console/FileWriter.h"
#include "tools/console/Interrupt.h"

namespace fbr {
namespace {

using std::filesystem::path;

constexpr int kMostLinks = 40;
constexpr int kMostNames = 100;
constexpr mode_t kPermissions = 07777, kWithoutOwner = 0777;

[[noreturn]] void ThrowLast() {
    throw std::system_error(errno, std::generic_category());
}

int OpenOrThrow(const path& file, int flags) {
    for (;;) {
        const int descriptor = open(file.c_str(), flags | O_WRONLY | O_CLOEXEC | O_NOCTTY);
        if (descriptor >= 0) return descriptor;
        if (errno != EINTR) ThrowLast();
        StopIfInterrupted();  // a pipe that nobody reads
    }
}

// The links below /proc are names of what a process has open and of nothing else.
bool IsOfAProcess(const path& link) {
    struct statfs system = {};
    const path folder = link.has_parent_path() ? link.parent_path() : path(".");
    return statfs(folder.c_str(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

// Where `file` is in truth; false when that has no place to put another file.
bool FollowLinks(path* file) {
    for (int i = 0; i < kMostLinks; ++i) {
        std::error_code error;
        if (!std::filesystem::is_symlink(*file, error)) return true;
        if (IsOfAProcess(*file)) return false;
        const path target = std::filesystem::read_symlink(*file, error);
        if (error) throw std::system_error(error);
        *file = file->parent_path() / target;  // a whole path stands alone
    }
    throw std::system_error(ELOOP, std::generic_category());
}

path NameBeside(const path& file, std::random_device& random) {
    char name[40];
    std::snprintf(name, sizeof name, ".fbr-%08x%08x.part", random(), random());
    return file.parent_path() / name;
}

}  // namespace

struct FileWriter::System {
    int descriptor = -1;
    path place, beside;  // empty for what is written straight away

    void Open(const path& file) {
        struct stat old = {};
        const bool there = stat(file.c_str(), &old) == 0;
        if (!there && errno != ENOENT) ThrowLast();
        place = file;
        if ((there && !S_ISREG(old.st_mode)) || !FollowLinks(&place)) {
            place.clear();
            descriptor = OpenOrThrow(file, O_TRUNC);
            return;
        }
        if (there) close(OpenOrThrow(place, 0));  // what may not be written is not replaced
        MakeBeside(there ? 0600 : 0666);
        if (there) TakeOver(old);
    }

    void MakeBeside(mode_t mode) {
        std::random_device random;
        for (int i = 0; i < kMostNames && descriptor < 0; ++i) {
            beside = NameBeside(place, random);
            descriptor = open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
            if (descriptor < 0 && errno != EEXIST) break;
        }
        if (descriptor < 0) {
            beside.clear();
            ThrowLast();
        }
    }

    // An owner that cannot be given takes the bits along that lend his rights.
    void TakeOver(const struct stat& old) const {
        const bool owned = fchown(descriptor, old.st_uid, old.st_gid) == 0;
        fchmod(descriptor, old.st_mode & (owned ? kPermissions : kWithoutOwner));
    }
};

FileWriter::FileWriter(const path& file) : system_(std::make_unique<System>()) {
    system_->Open(file);
}

FileWriter::~FileWriter() {
    if (system_->descriptor >= 0) close(system_->descriptor);
    if (!system_->beside.empty()) unlink(system_->beside.c_str());
}

void FileWriter::Write(const char* bytes, size_t size) {
    while (size != 0) {
        const ssize_t written = write(system_->descriptor, bytes, size);
        if (written < 0 && errno != EINTR) ThrowLast();
        StopIfInterrupted();
        if (written < 0) continue;
        bytes += written;
        size -= static_cast<size_t>(written);
    }
}

void FileWriter::Reserve(uint64_t size) {
    if (ftruncate(system_->descriptor, static_cast<off_t>(size)) != 0) ThrowLast();
}

void FileWriter::Finish() {
    const int descriptor = std::exchange(system_->descriptor, -1);
    if (close(descriptor) != 0) ThrowLast();
    if (system_->beside.empty()) return;
    if (rename(system_->beside.c_str(), system_->place.c_str()) != 0) ThrowLast();
    system_->beside.clear();
}

}  // namespace fbr
