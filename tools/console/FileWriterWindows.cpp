// SPDX-License-Identifier: MIT
#include <windows.h>

#include <algorithm>
#include <random>
#include <string>
#include <system_error>
#include <utility>

#include "tools/console/FileWriter.h"
#include "tools/console/Interrupt.h"

namespace fbr {
namespace {

using std::filesystem::path;

constexpr int kMostNames = 100;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
// Whoever listens at a pipe learns who writes and may not act for him.
constexpr DWORD kIdentify = SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;

[[noreturn]] void Throw(DWORD error) {
    throw std::system_error(static_cast<int>(error), std::system_category());
}

// The path of an open file, with its links followed.
path PlaceOf(HANDLE file, const path& name) {
    std::wstring text(GetFinalPathNameByHandleW(file, nullptr, 0, 0), L'\0');
    if (text.empty()) return name;
    const DWORD size =
        GetFinalPathNameByHandleW(file, text.data(), static_cast<DWORD>(text.size()), 0);
    if (size == 0 || size >= text.size()) return name;
    text.resize(size);
    return text;
}

path NameBeside(const path& file, std::random_device& random) {
    wchar_t name[40];
    swprintf(name, std::size(name), L"fbr-%08x%08x.part", random(), random());
    return file.parent_path() / name;
}

}  // namespace

struct FileWriter::System {
    HANDLE handle = INVALID_HANDLE_VALUE;
    path place, beside;  // empty for what is written straight away
    bool replaces = false;

    void Open(const path& file) {
        const HANDLE old = CreateFileW(file.c_str(), GENERIC_WRITE, kShareAll, nullptr,
                                       OPEN_EXISTING, kIdentify, nullptr);
        const DWORD error = GetLastError();
        if (old != INVALID_HANDLE_VALUE && GetFileType(old) != FILE_TYPE_DISK) {
            handle = old;
            return;
        }
        place = file;
        replaces = old != INVALID_HANDLE_VALUE;
        if (replaces) {
            place = PlaceOf(old, file);
            CloseHandle(old);
        } else if (error != ERROR_FILE_NOT_FOUND) {
            Throw(error);
        }
        MakeBeside();
    }

    void MakeBeside() {
        std::random_device random;
        DWORD error = ERROR_FILE_EXISTS;
        for (int i = 0; i < kMostNames && error == ERROR_FILE_EXISTS; ++i) {
            beside = NameBeside(place, random);
            handle = CreateFileW(beside.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                 FILE_ATTRIBUTE_NORMAL, nullptr);
            if (handle != INVALID_HANDLE_VALUE) return;
            error = GetLastError();
        }
        beside.clear();
        Throw(error);
    }

    bool TakePlace() const {
        // Which keeps the rights and attributes of what was there.
        if (replaces && ReplaceFileW(place.c_str(), beside.c_str(), nullptr,
                                     REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr, nullptr))
            return true;
        return MoveFileExW(beside.c_str(), place.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
    }
};

FileWriter::FileWriter(const path& file) : system_(std::make_unique<System>()) {
    system_->Open(file);
}

FileWriter::~FileWriter() {
    if (system_->handle != INVALID_HANDLE_VALUE) CloseHandle(system_->handle);
    if (!system_->beside.empty()) DeleteFileW(system_->beside.c_str());
}

void FileWriter::Write(const char* bytes, size_t size) {
    constexpr size_t kMost = 1 << 20;
    while (size != 0) {
        DWORD written = 0;
        if (!WriteFile(system_->handle, bytes, static_cast<DWORD>(std::min(size, kMost)), &written,
                       nullptr))
            Throw(GetLastError());
        StopIfInterrupted();
        bytes += written;
        size -= written;
    }
}

void FileWriter::Reserve(uint64_t size) {
    FILE_END_OF_FILE_INFO end = {};
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    if (!SetFileInformationByHandle(system_->handle, FileEndOfFileInfo, &end, sizeof end))
        Throw(GetLastError());
}

void FileWriter::Finish() {
    const HANDLE handle = std::exchange(system_->handle, INVALID_HANDLE_VALUE);
    if (!CloseHandle(handle)) Throw(GetLastError());
    if (system_->beside.empty()) return;
    if (!system_->TakePlace()) Throw(GetLastError());
    system_->beside.clear();
}

}  // namespace fbr
