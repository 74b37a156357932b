// SPDX-License-Identifier: MIT
#include <windows.h>

#include <stdexcept>

#include "bench/BareFile.h"

namespace bench {

namespace {

bool MoveTo(HANDLE file, uint64_t offset) {
    LARGE_INTEGER place;
    place.QuadPart = static_cast<LONGLONG>(offset);
    return SetFilePointerEx(file, place, nullptr, FILE_BEGIN) != 0;
}

}  // namespace

BareFile::BareFile(const std::filesystem::path& path)
    : handle_(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                          FILE_FLAG_RANDOM_ACCESS, nullptr)) {
    if (handle_ == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot make " + path.string());
}

BareFile::~BareFile() {
    CloseHandle(handle_);
}

bool BareFile::Write(uint64_t offset, const void* buffer, uint32_t bytes) {
    DWORD done = 0;
    return MoveTo(handle_, offset) && WriteFile(handle_, buffer, bytes, &done, nullptr) &&
           done == bytes;
}

bool BareFile::Read(uint64_t offset, void* buffer, uint32_t bytes) {
    DWORD done = 0;
    return MoveTo(handle_, offset) && ReadFile(handle_, buffer, bytes, &done, nullptr) &&
           done == bytes;
}

}  // namespace bench
