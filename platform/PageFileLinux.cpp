// SPDX-License-Identifier: MIT
#include "platform/PageFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>

#include "platform/ErrnoLinux.h"
#include "platform/FileMarkLinux.h"
#include "platform/HeapObject.h"
#include "platform/Hooks.h"
#include "platform/PathLinux.h"
#include "platform/Resources.h"
#include "platform/RootFolder.h"
#include "platform/Text.h"

namespace platform {
namespace {

constexpr uint64_t kMaxOffset = std::numeric_limits<off_t>::max();

class LinuxPageFile final : public PageFile, public HeapObject {
  public:
    LinuxPageFile(int descriptor, bool readOnly, const FileIdentity& identity)
        : descriptor_(descriptor), readOnly_(readOnly), identity_(identity) {}
    ~LinuxPageFile() override { close(descriptor_); }
    LinuxPageFile(const LinuxPageFile&) = delete;
    LinuxPageFile& operator=(const LinuxPageFile&) = delete;

    Error Read(uint64_t offset, void* buffer, uint32_t bytes, uint32_t* done) override;
    Error Write(uint64_t offset, const void* const* buffers, uint32_t count, uint32_t bytes,
                uint32_t* done) override;
    Error Cut(uint64_t length) override;
    Error Size(uint64_t* length) override;
    Error Flush() override;
    Error Identity(FileIdentity* identity) override;
    bool IsWritable() const override { return !readOnly_; }
    bool IsAt(const WChar* path, uint64_t* length) override;
    Error TakeMark(bool* taken) override { return mark_.Take(descriptor_, taken); }
    void DropMark() override { mark_.Drop(descriptor_); }
    bool IsMarkedElsewhere() override { return FileMark::IsTakenElsewhere(descriptor_); }

  private:
    static constexpr size_t kAskedUnits = 256;

    Error WriteRun(uint64_t offset, iovec* parts, int count, uint32_t* done);
    bool Look(const WChar* path, struct stat* there);

    int descriptor_;
    bool readOnly_;
    FileIdentity identity_;
    FileMark mark_;
    // The path of the last look, and what the system calls it: each lock asks for the same one.
    WChar asked_[kAskedUnits] = {};
    char askedText_[3 * kAskedUnits] = {};
};

Error LinuxPageFile::Read(uint64_t offset, void* buffer, uint32_t bytes, uint32_t* done) {
    *done = 0;
    if (offset > kMaxOffset) return Leave(kErrorNegativeSeek);
    while (*done < bytes) {
        const ssize_t got = pread(descriptor_, static_cast<char*>(buffer) + *done, bytes - *done,
                                  static_cast<off_t>(offset + *done));
        if (got == 0) break;
        if (got > 0) {
            *done += static_cast<uint32_t>(got);
        } else if (errno != EINTR) {
            return Leave(FromErrno(errno));
        }
    }
    return Leave(kErrorSuccess);
}

// Writes the parts, going on behind what a short transfer has left out.
Error LinuxPageFile::WriteRun(uint64_t offset, iovec* parts, int count, uint32_t* done) {
    while (count > 0) {
        const auto at = static_cast<off_t>(offset);
        ssize_t put = count == 1 ? pwrite(descriptor_, parts->iov_base, parts->iov_len, at)
                                 : pwritev(descriptor_, parts, count, at);
        if (put < 0) {
            if (errno == EINTR) continue;
            return FromErrno(errno);
        }
        *done += static_cast<uint32_t>(put);
        offset += static_cast<uint64_t>(put);
        for (; count > 0 && static_cast<size_t>(put) >= parts->iov_len; ++parts, --count) {
            put -= static_cast<ssize_t>(parts->iov_len);
        }
        if (count > 0) {
            parts->iov_base = static_cast<char*>(parts->iov_base) + put;
            parts->iov_len -= static_cast<size_t>(put);
        }
    }
    return kErrorSuccess;
}

Error LinuxPageFile::Write(uint64_t offset, const void* const* buffers, uint32_t count,
                           uint32_t bytes, uint32_t* done) {
    constexpr uint32_t kBatch = 64, kGathered = 4096;
    *done = 0;
    if (readOnly_) return Leave(kErrorAccessDenied);
    const uint64_t total = uint64_t{count} * bytes;
    if (total > std::numeric_limits<uint32_t>::max()) return Leave(kErrorInvalidParameter);
    if (offset > kMaxOffset - total) return Leave(kErrorNegativeSeek);
    if (total == 0) return Leave(kErrorSuccess);
    if (count > 1 && total <= kGathered) {  // cheaper than to have the system gather them
        char all[kGathered];
        for (uint32_t i = 0; i < count; ++i)
            std::memcpy(all + size_t{i} * bytes, buffers[i], bytes);
        iovec part{all, static_cast<size_t>(total)};
        return Leave(WriteRun(offset, &part, 1, done));
    }
    for (uint32_t first = 0; first < count; first += kBatch) {
        iovec parts[kBatch];
        const uint32_t run = std::min(kBatch, count - first);
        for (uint32_t i = 0; i < run; ++i) {
            parts[i] = {const_cast<void*>(buffers[first + i]), bytes};
        }
        const Error error = WriteRun(offset + *done, parts, static_cast<int>(run), done);
        if (error != kErrorSuccess) return Leave(error);
    }
    return Leave(kErrorSuccess);
}

Error LinuxPageFile::Cut(uint64_t length) {
    if (readOnly_) return Leave(kErrorAccessDenied);
    if (length > kMaxOffset) return Leave(kErrorNegativeSeek);
    while (ftruncate(descriptor_, static_cast<off_t>(length)) != 0) {
        if (errno != EINTR) return Leave(FromErrno(errno));
    }
    return Leave(kErrorSuccess);
}

Error LinuxPageFile::Size(uint64_t* length) {
    struct stat found;
    if (fstat(descriptor_, &found) != 0) return Leave(FromErrno(errno));
    *length = static_cast<uint64_t>(found.st_size);
    return Leave(kErrorSuccess);
}

Error LinuxPageFile::Flush() {
    if (readOnly_) return Leave(kErrorAccessDenied);
    return Leave(fdatasync(descriptor_) == 0 ? kErrorSuccess : FromErrno(errno));
}

Error LinuxPageFile::Identity(FileIdentity* identity) {
    *identity = identity_;
    return Leave(kErrorSuccess);
}

// Both end in a zero.
bool IsSameText(const WChar* a, const WChar* b) {
    for (; *a == *b; ++a, ++b)
        if (*a == 0) return true;
    return false;
}

bool LinuxPageFile::Look(const WChar* path, struct stat* there) {
    // Within a root a path is looked up by way of its folder each time.
    const bool keeps = CurrentRoot() == nullptr && path != nullptr;
    if (keeps && asked_[0] != 0 && IsSameText(path, asked_)) return stat(askedText_, there) == 0;
    const NativePath native(path);
    if (native.Status() != kErrorSuccess) return false;
    const WStringView units(path);
    if (keeps && units.size() < kAskedUnits) {
        std::memcpy(asked_, path, (units.size() + 1) * sizeof(WChar));
        std::memcpy(askedText_, native.Text(), std::strlen(native.Text()) + 1);
    }
    return stat(native.Text(), there) == 0;
}

bool LinuxPageFile::IsAt(const WChar* path, uint64_t* length) {
    struct stat there;
    if (!Look(path, &there)) return false;
    *length = static_cast<uint64_t>(there.st_size);
    return identity_ == FileIdentity{there.st_dev, there.st_ino};
}

// What a file handle points to between the opening and the making of the page file.
struct OpenedFile : HeapObject {
    int descriptor;
    bool readOnly;
    FileIdentity identity;
};

int OpenFlags(bool readOnly, uint32_t disposition) {
    // Without O_NONBLOCK the open of a pipe would wait for its other end.
    const int flags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (readOnly ? O_RDONLY : O_RDWR);
    switch (static_cast<Disposition>(disposition)) {
        case Disposition::CreateNew:
            return flags | O_CREAT | O_EXCL;
        case Disposition::CreateAlways:
            return flags | O_CREAT | O_TRUNC;
        case Disposition::OpenExisting:
            return flags;
    }
    return -1;
}

Error OpenRegular(const WChar* path, bool readOnly, uint32_t disposition, OpenedFile* file) {
    const NativePath native(path);
    if (native.Status() != kErrorSuccess) return native.Status();
    const int flags = OpenFlags(readOnly, disposition);
    if (flags < 0) return kErrorInvalidParameter;
    const int descriptor = open(native.Text(), flags | native.NoFollow(), 0666);
    if (descriptor < 0) return native.Explain(errno);
    struct stat found;
    if (fstat(descriptor, &found) == 0 && S_ISREG(found.st_mode)) {
        file->descriptor = descriptor;
        file->readOnly = readOnly;
        file->identity = {found.st_dev, found.st_ino};
        return kErrorSuccess;
    }
    close(descriptor);
    return kErrorAccessDenied;
}

}  // namespace

Handle OpenFileHandle(const WChar* path, bool readOnly, uint32_t disposition,
                      const void* /*attributes*/) noexcept {
    auto* opened = new OpenedFile;
    if (opened == nullptr) {
        Leave(kErrorOutOfMemory);
        return nullptr;
    }
    const Error error = Leave(OpenRegular(path, readOnly, disposition, opened));
    if (error != kErrorSuccess) {
        delete opened;
        return nullptr;
    }
    posix_fadvise(opened->descriptor, 0, 0, POSIX_FADV_RANDOM);
    return opened;
}

PageFile* AdoptFileHandle(Handle handle, const WChar* path) noexcept {
    if (!IsValid(handle)) return nullptr;
    auto* opened = static_cast<OpenedFile*>(handle);
    auto* file = new LinuxPageFile(opened->descriptor, opened->readOnly, opened->identity);
    if (file == nullptr) {
        close(opened->descriptor);
        Leave(kErrorOutOfMemory);
    }
    delete opened;
    return hooks::Wrap(file, path);
}

Error DeleteFileByPath(const WChar* path) noexcept {
    const NativePath native(path);
    if (native.Status() != kErrorSuccess) return Leave(native.Status());
    return Leave(unlink(native.Text()) == 0 ? kErrorSuccess : native.Explain(errno));
}

Error ProbePath(const WChar* path) noexcept {
    const NativePath native(path);
    if (native.Status() != kErrorSuccess) return Leave(native.Status());
    struct stat found;
    return Leave(stat(native.Text(), &found) == 0 ? kErrorSuccess : native.Explain(errno));
}

}  // namespace platform
