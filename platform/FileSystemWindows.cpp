#include "platform/FileSystem.h"

#include <windows.h>

namespace platform {
namespace {

Error Outcome(bool done) {
    if (done) {
        ::SetLastError(kErrorSuccess);
        return kErrorSuccess;
    }
    const Error error = ::GetLastError();
    return error != kErrorSuccess ? error : kErrorGenFailure;
}

}  // namespace

Error GetAttributes(const WChar* path, uint32_t* attributes) noexcept {
    const DWORD found = GetFileAttributesW(path);
    if (found != INVALID_FILE_ATTRIBUTES) *attributes = found;
    return Outcome(found != INVALID_FILE_ATTRIBUTES);
}

Error SetAttributes(const WChar* path, uint32_t attributes) noexcept {
    return Outcome(SetFileAttributesW(path, attributes) != 0);
}

Error MakeFolder(const WChar* path) noexcept {
    return Outcome(CreateDirectoryW(path, nullptr) != 0);
}

Error RemoveFolder(const WChar* path) noexcept {
    return Outcome(RemoveDirectoryW(path) != 0);
}

Error RenameNew(const WChar* from, const WChar* to, bool durable) noexcept {
    return Outcome(MoveFileExW(from, to, durable ? MOVEFILE_WRITE_THROUGH : 0) != 0);
}

}  // namespace platform
