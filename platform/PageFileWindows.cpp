// SPDX-License-Identifier: MIT
#include "platform/PageFile.h"

#include <windows.h>

#include <cstring>
#include <limits>

#include "platform/HeapObject.h"
#include "platform/Hooks.h"
#include "platform/OutcomeWindows.h"
#include "platform/Resources.h"
#include "platform/RootFolder.h"

namespace platform {
namespace {

// Transfers move the one position of the file and go on from there. An OVERLAPPED offset would
// spare the seek, but costs several times more than both calls on some systems.
class WindowsPageFile final : public PageFile, public HeapObject {
  public:
    WindowsPageFile(HANDLE handle, bool writable) : handle_(handle), writable_(writable) {}
    ~WindowsPageFile() override {
        HeapRelease(gathered_);
        CloseHandle(handle_);
    }
    WindowsPageFile(const WindowsPageFile&) = delete;
    WindowsPageFile& operator=(const WindowsPageFile&) = delete;

    Error Read(uint64_t offset, void* buffer, uint32_t bytes, uint32_t* done) override;
    Error Write(uint64_t offset, const void* const* buffers, uint32_t count, uint32_t bytes,
                uint32_t* done) override;
    Error Cut(uint64_t length) override;
    Error Size(uint64_t* length) override;
    Error Flush() override;
    Error Identity(FileIdentity* identity) override;
    bool IsWritable() const override { return writable_; }
    // Others cannot move or delete the file while it is open here: it is not shared for that.
    bool IsAt(const WChar*, uint64_t* length) override {
        if (Size(length) != kErrorSuccess) *length = 0;
        return true;
    }
    Error TakeMark(bool* taken) override;
    void DropMark() override;
    bool IsMarkedElsewhere() override;

  private:
    Error Seek(uint64_t offset);
    Error Put(const void* buffer, uint32_t bytes, uint32_t* done);
    bool Gather(const void* const* buffers, uint32_t count, uint32_t bytes);

    HANDLE handle_;
    bool writable_;
    char* gathered_ = nullptr;
    size_t gatheredSize_ = 0;
};

Error WindowsPageFile::Seek(uint64_t offset) {
    LONG high = static_cast<LONG>(offset >> 32);
    ::SetLastError(kErrorSuccess);
    // The low half of a valid position may be 0xFFFFFFFF: only the last error tells.
    const DWORD low = SetFilePointer(handle_, static_cast<LONG>(offset), &high, FILE_BEGIN);
    return low == INVALID_SET_FILE_POINTER ? ::GetLastError() : kErrorSuccess;
}

Error WindowsPageFile::Read(uint64_t offset, void* buffer, uint32_t bytes, uint32_t* done) {
    *done = 0;
    const Error error = Seek(offset);
    if (error != kErrorSuccess) return error;
    DWORD got = 0;
    if (!ReadFile(handle_, buffer, bytes, &got, nullptr)) return Failure();
    *done = got;
    return Leave(kErrorSuccess);
}

Error WindowsPageFile::Put(const void* buffer, uint32_t bytes, uint32_t* done) {
    DWORD put = 0;
    const bool written = WriteFile(handle_, buffer, bytes, &put, nullptr) != 0;
    *done += put;
    if (!written) return Failure();
    return put == bytes ? Leave(kErrorSuccess) : Leave(kErrorDiskFull);
}

// Copies the buffers behind one another. False when there is no memory for that.
bool WindowsPageFile::Gather(const void* const* buffers, uint32_t count, uint32_t bytes) {
    const size_t need = size_t{count} * bytes;
    if (need > gatheredSize_) {
        auto* larger = static_cast<char*>(HeapAllocate(need));
        if (larger == nullptr) return false;
        HeapRelease(gathered_);
        gathered_ = larger;
        gatheredSize_ = need;
    }
    for (uint32_t i = 0; i < count; ++i) {
        std::memcpy(gathered_ + size_t{i} * bytes, buffers[i], bytes);
    }
    return true;
}

Error WindowsPageFile::Write(uint64_t offset, const void* const* buffers, uint32_t count,
                             uint32_t bytes, uint32_t* done) {
    *done = 0;
    const uint64_t total = uint64_t{count} * bytes;
    if (total > std::numeric_limits<uint32_t>::max()) return Leave(kErrorInvalidParameter);
    Error error = Seek(offset);
    if (error != kErrorSuccess || total == 0) return error;
    if (count == 1) return Put(buffers[0], bytes, done);
    if (Gather(buffers, count, bytes)) return Put(gathered_, static_cast<uint32_t>(total), done);
    // Memory is short, which is no reason to lose data: one transfer for each buffer.
    for (uint32_t i = 0; i < count && error == kErrorSuccess; ++i) {
        error = Put(buffers[i], bytes, done);
    }
    return error;
}

Error WindowsPageFile::Cut(uint64_t length) {
    const Error error = Seek(length);
    if (error != kErrorSuccess) return error;
    return SetEndOfFile(handle_) ? Leave(kErrorSuccess) : Failure();
}

Error WindowsPageFile::Size(uint64_t* length) {
    DWORD high = 0;
    ::SetLastError(kErrorSuccess);
    const DWORD low = GetFileSize(handle_, &high);
    if (low == INVALID_FILE_SIZE && ::GetLastError() != kErrorSuccess) return ::GetLastError();
    *length = uint64_t{high} << 32 | low;
    return Leave(kErrorSuccess);
}

Error WindowsPageFile::Flush() {
    return FlushFileBuffers(handle_) ? Leave(kErrorSuccess) : Failure();
}

Error WindowsPageFile::Identity(FileIdentity* identity) {
    BY_HANDLE_FILE_INFORMATION found;
    if (!GetFileInformationByHandle(handle_, &found)) return Failure();
    *identity = {found.dwVolumeSerialNumber,
                 uint64_t{found.nFileIndexHigh} << 32 | found.nFileIndexLow};
    return Leave(kErrorSuccess);
}

OVERLAPPED MarkPlace() {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(kMarkOffset);
    place.OffsetHigh = static_cast<DWORD>(kMarkOffset >> 32);
    return place;
}

Error WindowsPageFile::TakeMark(bool* taken) {
    OVERLAPPED place = MarkPlace();
    *taken = LockFileEx(handle_, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0,
                        &place) != 0;
    if (*taken) return Leave(kErrorSuccess);
    const Error error = ::GetLastError();
    return Leave(error == ERROR_LOCK_VIOLATION || error == ERROR_IO_PENDING ? kErrorSuccess
                                                                            : error);
}

void WindowsPageFile::DropMark() {
    OVERLAPPED place = MarkPlace();
    UnlockFileEx(handle_, 0, 1, 0, &place);
}

bool WindowsPageFile::IsMarkedElsewhere() {
    bool taken = false;
    const Error error = TakeMark(&taken);
    if (taken) DropMark();
    return error == kErrorSuccess && !taken;
}

}  // namespace

Handle OpenFileHandle(const WChar* path, bool readOnly, uint32_t disposition,
                      const void* attributes) noexcept {
    const DWORD access = readOnly ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
    auto* security = static_cast<SECURITY_ATTRIBUTES*>(const_cast<void*>(attributes));
    const HeldFolder folder(path);
    if (Leave(folder.Status()) != kErrorSuccess) return INVALID_HANDLE_VALUE;
    // What is not below the thread's root must not be cut before that is known.
    const bool cut = folder.IsLimited() && disposition == CREATE_ALWAYS;
    const HANDLE file = CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, security,
                                    cut ? OPEN_ALWAYS : disposition,
                                    FILE_FLAG_RANDOM_ACCESS | FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return file;
    const Error told = ::GetLastError();
    // A device keeps no pages, though some take and give bytes.
    Error error = GetFileType(file) != FILE_TYPE_DISK ? kErrorInvalidName : folder.Verify(file);
    if (error == kErrorSuccess && cut && !SetEndOfFile(file)) error = Failure();
    if (error != kErrorSuccess) CloseHandle(file);
    Leave(error != kErrorSuccess ? error : told);
    return error == kErrorSuccess ? file : INVALID_HANDLE_VALUE;
}

PageFile* AdoptFileHandle(Handle handle, const WChar* path) noexcept {
    if (!IsValid(handle)) return nullptr;
    // A transfer of nothing needs the right all the same.
    DWORD none = 0;
    const bool writable = WriteFile(handle, "", 0, &none, nullptr) != 0;
    auto* file = new WindowsPageFile(handle, writable);
    if (file == nullptr) {
        CloseHandle(handle);
        ::SetLastError(kErrorOutOfMemory);
    }
    return hooks::Wrap(file, path);
}

Error DeleteFileByPath(const WChar* path) noexcept {
    const HeldFolder folder(path);
    if (folder.Status() != kErrorSuccess) return Leave(folder.Status());
    return DeleteFileW(path) ? Leave(kErrorSuccess) : Failure();
}

Error ProbePath(const WChar* path) noexcept {
    const HeldFolder folder(path);
    if (folder.Status() != kErrorSuccess) return Leave(folder.Status());
    return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES ? Leave(kErrorSuccess) : Failure();
}

}  // namespace platform
